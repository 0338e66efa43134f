"""bench/run: builds what is measured, measures it, and writes the report."""

import argparse
import json
import os
import resource
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from harness import growth, machine, measure, report, runner, shares  # noqa: E402
from harness.data import Store  # noqa: E402
from harness.model import Tools  # noqa: E402
from harness.workloads import WORKLOADS  # noqa: E402

ROOT = Path(__file__).resolve().parents[2]
BUILD = ROOT / "build-bench"
EXIT_DONE, EXIT_FAILED, EXIT_USAGE, EXIT_MISSED = 0, 1, 2, 3

HELP = """\
Measures the file module against floors, a naive twin, C and C++ libraries and interpreters, and
writes a report with tables and pictures.

  bench/run quick              small sizes: within two minutes, once it is built
  bench/run full               the sizes of the report: half an hour to an hour; writes
                               docs/performance.md
  bench/run quick bytes eol-3  these workloads only, without growth
  bench/run report             writes the report of the last run again
"""
EXIT_CODES = """\
exit code: 0 when all was measured, 1 when something failed or a variant delivers something else than
the others, 2 for wrong usage, 3 with --strict when a target was missed or could not be told."""


def parser():
    known = ", ".join(w.name for w in WORKLOADS)
    answer = argparse.ArgumentParser(
        prog="bench/run", description=HELP, epilog=f"workloads: {known}\n\n{EXIT_CODES}",
        formatter_class=argparse.RawDescriptionHelpFormatter)
    answer.add_argument("mode", nargs="?", default="quick", choices=("quick", "full", "report"))
    answer.add_argument("workloads", nargs="*", metavar="WORKLOAD")
    answer.add_argument("--install", action="store_true",
                        help="installs the interpreters that are compared, and ends")
    answer.add_argument("--list", action="store_true", help="lists the workloads, and ends")
    answer.add_argument("--rounds", type=int, metavar="N", help="rounds of each workload")
    answer.add_argument("--cpu", type=int, metavar="N", help="the CPU to measure on; the last one")
    answer.add_argument("--data", type=Path, metavar="FOLDER",
                        help="where files are made; TMPDIR, or /tmp")
    answer.add_argument("--output", type=Path, metavar="FOLDER",
                        help="where the report goes; docs for a full run of all workloads, else "
                        "build-bench/report")
    answer.add_argument("--no-growth", action="store_true", help="leaves out how costs grow")
    answer.add_argument("--strict", action="store_true", help="a missed target is exit code 3")
    return answer


def install():
    """Installs the peers that are missing."""
    there = machine.interpreters()
    missing = [package for name, package in machine.PACKAGES.items() if name not in there]
    if not missing:
        print("Nothing is missing.")
        return EXIT_DONE
    print("Installing:", " ".join(missing), flush=True)
    as_root = [] if os.geteuid() == 0 else ["sudo"]
    command = [*as_root, "env", "DEBIAN_FRONTEND=noninteractive", "apt-get", "install", "-q", "-y",
               "--no-install-recommends", *missing]
    return EXIT_DONE if subprocess.run(command, check=False).returncode == 0 else EXIT_FAILED


def build(progress):
    """Configures and builds the programs in their own folder."""
    progress.line("Building (build-bench)")
    configure = ["cmake", "-S", ROOT, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                 "-DKVFILE_BENCH=ON", "-DKVFILE_TESTS=OFF"]
    for command in (configure, ["cmake", "--build", BUILD, "--target", "bench_programs"]):
        done = subprocess.run([str(part) for part in command], capture_output=True, text=True,
                              check=False)
        if done.returncode != 0:
            print((done.stdout + done.stderr)[-6000:], file=sys.stderr)
            raise runner.Failure("the build failed")


def data_folder(given):
    """Files lie where those of a product do: on the file system of temporary files."""
    return given or Path(os.environ.get("TMPDIR", "/tmp"))


def calibrate(tools, store):
    output = tools.launcher.run([tools.programs / "bench_calibrate", store.folder]).output.decode()
    return {name: float(value) for name, value in map(str.split, output.splitlines())}


def cpu_seconds():
    """CPU time of all processes that were run so far."""
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def measure_all(chosen, arguments, tools, store, progress):
    """Runs the workloads and prints each section as soon as it is there."""
    full = arguments.mode == "full"
    rounds = arguments.rounds or (15 if full else 5)
    results = {}
    for number, workload in enumerate(chosen, 1):
        began, taken = time.monotonic(), cpu_seconds()
        size = workload.full if full else workload.quick
        results[workload.name] = measure.measure(workload, size, rounds, tools, store, progress)
        progress.line(f"[{number}/{len(chosen)}] {workload.name}: "
                      f"{len(results[workload.name]['variants'])} variants, {rounds} rounds, "
                      f"{time.monotonic() - began:.0f} s ({cpu_seconds() - taken:.1f} of CPU)")
        print(report.workload_section(workload, results[workload.name], tools.cpu_flags),
              flush=True)
    return results, rounds


def profile(chosen, results, tools, store, progress):
    if not shutil.which("valgrind"):
        progress.line("skipped: where the nanoseconds go (valgrind is not installed)")
        return []
    return shares.measure(chosen, results, tools, store, ROOT, progress)


def run(arguments, chosen, progress):
    began = time.monotonic()
    cpu = arguments.cpu if arguments.cpu is not None else max(os.sched_getaffinity(0))
    interpreters = machine.interpreters()
    flags = frozenset(machine.processor_flags())
    store = Store(data_folder(arguments.data))
    tools = Tools(BUILD / "bin", ROOT / "bench" / "peers", interpreters, flags,
                  runner.Launcher(BUILD / "bin", cpu, store.folder))
    try:
        about = machine.description(cpu, store.folder, interpreters)
        growth.allow_many_descriptors()
        progress.step("calibrating")
        record = {"full": arguments.mode == "full", "machine": about,
                  "calibration": calibrate(tools, store)}
        record["results"], record["rounds"] = measure_all(chosen, arguments, tools, store, progress)
        record["shares"] = profile(chosen, record["results"], tools, store, progress)
        wants_growth = len(chosen) == len(WORKLOADS) and not arguments.no_growth
        record["growth"] = growth.Growth(tools, store, record["full"], progress).all() \
            if wants_growth else []
    finally:
        store.remove()
        progress.done()
    record["flags"] = sorted(flags)
    record["minutes"] = (time.monotonic() - began) / 60
    (BUILD / "results.json").write_text(json.dumps(record, indent=1))
    return record


def finish(record, arguments):
    """Writes the report and tells how the targets stand."""
    flags = frozenset(record["flags"])
    whole = record["full"] and len(record["results"]) == len(WORKLOADS)
    folder = arguments.output or (ROOT / "docs" if whole else BUILD / "report")
    page = report.write(record, WORKLOADS, flags, folder)
    if record["shares"]:
        print(report.shares_section(record["shares"]))
    if record["growth"]:
        print(report.growth_section(record["growth"]))
    told, rows = report.overview(WORKLOADS, record, flags)
    print(rows)
    print(f"\nTargets: {told}. Report: {page}")
    missed = "missed" in told or "noisy" in told
    return EXIT_MISSED if arguments.strict and missed else EXIT_DONE


def end_as_when_interrupted(_signal, _frame):
    raise KeyboardInterrupt


def main():
    arguments = parser().parse_args()
    signal.signal(signal.SIGTERM, end_as_when_interrupted)  # so that the data goes, too
    progress = measure.Progress(sys.stderr)
    if arguments.install:
        return install()
    if arguments.list:
        for workload in WORKLOADS:
            print(f"{workload.name:15} {workload.title}, per {workload.unit}")
        return EXIT_DONE
    unknown = [name for name in arguments.workloads if name not in {w.name for w in WORKLOADS}]
    if unknown:
        parser().error(f"no such workload: {', '.join(unknown)}")
    chosen = [w for w in WORKLOADS if not arguments.workloads or w.name in arguments.workloads]
    try:
        if arguments.mode == "report":
            return finish(json.loads((BUILD / "results.json").read_text()), arguments)
        build(progress)
        return finish(run(arguments, chosen, progress), arguments)
    except (runner.Failure, RuntimeError, OSError) as failure:
        print(f"bench/run: {failure}", file=sys.stderr)
        return EXIT_FAILED
    except KeyboardInterrupt:
        return 130


if __name__ == "__main__":
    sys.exit(main())
