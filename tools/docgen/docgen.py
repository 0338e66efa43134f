#!/usr/bin/env python3
"""Makes the reference of the user actions from the action table and the module's comments, and the
tables of raised errors in the manuals from the error table.

Each action is defined behind a block of `///` lines: a summary, then paragraphs that begin with the
labels below. The table gives the names, the arguments and the one-line meanings. What several actions
do alike is described once, in a block of `///` lines of a header that begins with "Host calls of the
look-up:", and the actions' paragraphs name it by that word; the pages link it.

  docgen.py --source . --reference docs/reference          writes the pages
  docgen.py --source . --reference docs/reference --check  fails where they are stale
  docgen.py --source . --errors docs/embedding.md ...      writes the errors' table of each
  docgen.py --source . --include FILE                      writes a C++ include for the shell

--check also fails where an action has no comment, where its comment lacks a paragraph, or where it
raises what the error table does not know. Without it such gaps are warnings, so that a build goes on.
"""

import argparse
import pathlib
import re
import sys
import textwrap

LABELS = ["Arguments", "Answers", "Raises", "Stores", "Host calls", "Blocks"]

LABEL = re.compile(r"(?:^|(?<=[.:;)] ))(" + "|".join(LABELS) + r"):")
ERROR_ROW = re.compile(r'^KVF_ERROR\((\d+), \w+, "([^"]*)", "([^"]*)"\)$')
# The heads by which a manual's table of errors is known, with what stands in its rows.
ERROR_TABLES = {
    "| Number | Meaning |": lambda error: [error.number, error.meaning + error.fatal_note],
    "| number | meaning | arguments |":
        lambda error: [error.number, error.meaning + error.fatal_note, error.arguments],
}
ROW = re.compile(r'^KVF_(?:PASSIVE_)?ACTION\((\w+), (\d+), \(([^)]*)\), "([^"]*)"\)$')
TEXT = re.compile(r'constexpr char (TEXT_\w+)\[\] =\s*((?:"(?:[^"\\]|\\.)*"\s*)+);')
TEXT_NAME = re.compile(r"\{(TEXT_\w+)\}")
DEFINITION = re.compile(r'^(?:extern "C" )?OopType (\w+)\(')
SHARED = re.compile(r"Host calls of (the [^:]+): (.+)", re.S)
HOST_CALLS = "Host calls"
RAISE = "the raise"  # every action that lists an error has it


class Action:
    """One row of the table, with the documentation found for it."""

    def __init__(self, name, count, parameters, meaning):
        self.name = name
        self.count = count
        self.arguments = [p.split()[-1] for p in parameters.split(",")]
        self.meaning = meaning
        self.summary = []     # paragraphs
        self.paragraphs = {}  # label to text
        self.source = None    # relative to the module's folder

    @property
    def call(self):
        return f"{self.name}({', '.join(self.arguments)})"

    def problems(self):
        if self.source is None:
            return [f"{self.name}: no documented definition"]
        missing = [label for label in LABELS if not self.paragraphs.get(label)]
        found = [f"{self.name}: no paragraph '{label}:' in {self.source}" for label in missing]
        if not self.summary:
            found.append(f"{self.name}: no summary in {self.source}")
        return found

    @property
    def raises(self):
        return not self.paragraphs.get("Raises", "").lower().startswith("nothing")


def read_table(source):
    actions = {}
    table = source / "include" / "kvfile" / "action_table.def"
    for line in table.read_text(encoding="utf-8").splitlines():
        row = ROW.match(line)
        if row:
            actions[row[1]] = Action(row[1], int(row[2]), row[3], row[4])
    if not actions:
        raise SystemExit(f"docgen: no rows in {table}")
    return actions


class Error:
    """One row of the error table."""

    def __init__(self, number, meaning, arguments):
        self.number = number
        self.meaning = meaning
        self.arguments = arguments
        self.fatal_note = "; fatal" if 4000 <= int(number) <= 4999 else ""


def read_errors(source):
    table = source / "include" / "kvfile" / "error_table.def"
    rows = [ERROR_ROW.match(line) for line in table.read_text(encoding="utf-8").splitlines()]
    errors = [Error(*row.groups()) for row in rows if row]
    if not errors:
        raise SystemExit(f"docgen: no rows in {table}")
    return errors


def with_error_table(text, errors):
    """`text` with the rows of its table of errors made anew; None where it has no such table."""
    lines = text.splitlines(keepends=True)
    for index, line in enumerate(lines):
        cells = ERROR_TABLES.get(line.rstrip())
        if cells is None:
            continue
        first = last = index + 2  # behind the line of dashes
        while last < len(lines) and lines[last].startswith("|"):
            last += 1
        rows = ["| " + " | ".join(cells(error)) + " |\n" for error in errors]
        rows = [re.sub(r" +\|$", " |", row) for row in rows]
        return "".join(lines[:first] + rows + lines[last:])
    return None


def unknown_errors(action, errors):
    known = {error.number for error in errors}
    raised = re.findall(r"\b\d{4}\b", action.paragraphs.get("Raises", ""))
    return [f"{action.name}: raises {number}, which the error table does not know"
            for number in raised if number not in known]


def split_comment(lines):
    """The summary's paragraphs and the labelled ones, lines of a paragraph joined.

    A label counts wherever a sentence may begin, because a formatter may have joined the lines.
    """
    summary, labelled, label = [], {}, None
    for paragraph in "\n".join(lines).split("\n\n"):
        pieces = LABEL.split(" ".join(paragraph.split()))
        for index, piece in enumerate(pieces):
            if index % 2 == 1:
                label = piece
                labelled.setdefault(label, "")
            elif piece.strip() and label is None:
                summary.append(piece.strip())
            elif piece.strip():
                labelled[label] = (labelled[label] + " " + piece.strip()).strip()
    return summary, labelled


def read_texts(module):
    """The module's named failure texts, which comments cite as {TEXT_NAME}."""
    texts = {}
    for path in sorted(module.rglob("*.h")):
        for name, literal in TEXT.findall(path.read_text(encoding="utf-8")):
            texts[name] = "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', literal))
    return texts


def read_shared(module):
    """The names of what several actions do alike, and the host calls of each, in the order of files."""
    shared, comment = {}, []
    for path in sorted(module.rglob("*.h")):
        for line in path.read_text(encoding="utf-8").splitlines():
            if line.strip().startswith("///"):
                comment.append(line.strip()[3:].strip())
                continue
            found = SHARED.match(" ".join(comment))
            if found:
                shared[found[1]] = found[2]
            comment = []
    return shared


def shared_in(text, shared):
    """The names of `shared` that the text uses, first use first."""
    at = {name: text.lower().find(name) for name in shared}
    return sorted((name for name in shared if at[name] >= 0), key=at.get)


def all_shared_in(action, shared):
    """Those that its host calls name, and those that these name in turn."""
    found = shared_in(action.paragraphs.get(HOST_CALLS, ""), shared)
    for name in found:  # grows while it is walked
        found += [inner for inner in shared_in(shared[name], shared) if inner not in found]
    return found


def unused_shared(actions, shared):
    used = {name for action in actions.values() for name in all_shared_in(action, shared)}
    used |= {RAISE} if RAISE in shared else set()
    return [f"host calls of {name}: no action has them" for name in shared if name not in used]


def resolve_texts(text, texts, problems):
    def replace(match):
        if match[1] not in texts:
            problems.append(f"{match[1]}: no text of that name")
            return match[0]
        return f'"{texts[match[1]]}"'
    return TEXT_NAME.sub(replace, text)


def read_sources(module, actions, problems):
    texts = read_texts(module)
    for path in sorted(module.rglob("*.cc")):
        comment = []
        for line in path.read_text(encoding="utf-8").splitlines():
            if line.startswith("///"):
                comment.append(line[3:].strip())
                continue
            definition = DEFINITION.match(line)
            if definition and comment and definition[1] in actions:
                action = actions[definition[1]]
                action.source = path.relative_to(module).as_posix()
                comment = [resolve_texts(part, texts, problems) for part in comment]
                action.summary, action.paragraphs = split_comment(comment)
            if line != 'extern "C"':
                comment = []


def help_text(action, shared):
    """Plain text for a terminal."""
    parts = [textwrap.fill(paragraph, 80) for paragraph in action.summary]
    for label in LABELS:
        if label in action.paragraphs:
            parts.append(textwrap.fill(f"{label}: {action.paragraphs[label]}", 80,
                                       subsequent_indent="  "))
        if label == HOST_CALLS:
            parts += [textwrap.fill(f"{sentence(name)}: {shared[name]}", 80, initial_indent="  ",
                                    subsequent_indent="    ")
                      for name in all_shared_in(action, shared)]
    return "\n\n".join(parts[:len(action.summary)]) + "\n\n" + "\n".join(parts[len(action.summary):])


def include_text(actions, shared):
    rows = []
    for action in actions.values():
        if action.source is None:
            continue
        # Pieces below the length that compilers must support.
        text = help_text(action, shared)
        pieces = [text[i:i + 1000] for i in range(0, len(text), 1000)]
        literal = "\n     ".join('R"doc(' + piece + ')doc"' for piece in pieces)
        rows.append(f'    {{"{action.name}",\n     {literal}}},\n')
    return "// Made by docgen.py from the comments of the module.\n" + "".join(rows)


def escape(text):
    """Keeps Markdown from taking operators and patterns in the text for markup."""
    return re.sub(r"([*_<>\[\]|`])", r"\\\1", text)


def sentence(text):
    """The text with a capital, unless it begins with the name of an argument or a value."""
    first = re.match(r"[a-z]+", text)
    keeps = first is None or first[0] in ("nil", "true", "false") or text[first.end():][:1].isupper()
    return text if keeps else text[0].upper() + text[1:]


def anchor(name):
    """Of a heading, as Markdown is shown on the web."""
    return re.sub(r"[^a-z -]", "", name).replace(" ", "-")


def linked(text, shared, page_name):
    """The text with the names of `shared` made into links to their place on the index page."""
    for name in shared:
        text = re.sub(re.escape(name), f"[\\g<0>]({page_name}#{anchor(name)})", text, flags=re.I)
    return text


def page(action, shared):
    lines = [f"# {action.name}", "", f"`{action.call}`", "", f"{action.meaning}.", ""]
    for paragraph in action.summary:
        lines += textwrap.wrap(escape(paragraph), 100) + [""]
    for label in LABELS:
        if label in action.paragraphs:
            text = sentence(escape(action.paragraphs[label]))
            if label == HOST_CALLS:
                text = linked(text, shared, "README.md")
            # A link breaks at a blank only.
            lines += [f"## {label}", ""]
            lines += textwrap.wrap(text, 100, break_on_hyphens=label != HOST_CALLS) + [""]
    lines.append(f"Source: `src/{action.source}`. [All actions](README.md)")
    return "\n".join(lines) + "\n"


def shared_lines(shared):
    lines = ["", "## Host calls that actions share", "",
             "The pages name them by these words. An error that a page lists under Raises ends in",
             "[the raise](#the-raise)."]
    for name, text in shared.items():
        lines += ["", f"### {sentence(name)}", ""]
        lines += textwrap.wrap(linked(sentence(escape(text)), shared, ""), 100,
                               break_on_hyphens=False)
    return lines


def index(actions, shared):
    lines = ["# The user actions", "",
             "In the order in which they are declared. The pages are made by `tools/docgen/docgen.py` "
             "from the", "table of actions and the comments above their definitions; `kvf help NAME` "
             "shows the same text.", "",
             "| Action | Arguments | Meaning |", "|---|---|---|"]
    for action in actions.values():
        lines.append(f"| [{action.name}]({action.name}.md) | {', '.join(action.arguments)} | "
                     f"{action.meaning} |")
    return "\n".join(lines + shared_lines(shared)) + "\n"


def pages(actions, shared):
    files = {"README.md": index(actions, shared)}
    for action in actions.values():
        if action.source is not None:
            files[f"{action.name}.md"] = page(action, shared)
    return files


def write_if_changed(path, text):
    if path.exists() and path.read_text(encoding="utf-8") == text:
        return
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text, encoding="utf-8")


def stale_pages(folder, files):
    found = [f"{folder / name}: stale; run tools/docgen/docgen.py --source . --reference "
             f"{folder}" for name, text in files.items()
             if not (folder / name).exists()
             or (folder / name).read_text(encoding="utf-8") != text]
    found += [f"{path}: belongs to no action" for path in sorted(folder.glob("*.md"))
              if path.name not in files]
    return found


def update_errors(manual, errors, only_check):
    text = manual.read_text(encoding="utf-8")
    wanted = with_error_table(text, errors)
    if wanted is None:
        return [f"{manual}: no table of errors"]
    if not only_check:
        write_if_changed(manual, wanted)
    elif wanted != text:
        return [f"{manual}: its table of errors is stale; run tools/docgen/docgen.py --source . "
                f"--errors {manual}"]
    return []


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--source", type=pathlib.Path, required=True, help="the tree's root")
    parser.add_argument("--include", type=pathlib.Path, help="write this C++ include")
    parser.add_argument("--reference", type=pathlib.Path, help="the folder of the pages")
    parser.add_argument("--errors", type=pathlib.Path, nargs="+", default=[],
                        help="manuals with a table of errors")
    parser.add_argument("--check", action="store_true", help="write nothing; fail where stale")
    options = parser.parse_args()

    actions = read_table(options.source)
    problems = []
    read_sources(options.source / "src", actions, problems)
    shared = read_shared(options.source / "src")
    problems += [problem for action in actions.values() for problem in action.problems()]
    problems += unused_shared(actions, shared)
    errors = read_errors(options.source)
    problems += [problem for action in actions.values()
                 for problem in unknown_errors(action, errors)]
    if options.include and not options.check:
        # Always written, so that the build sees a time behind that of the sources.
        options.include.write_text(include_text(actions, shared), encoding="utf-8")
    if options.reference:
        files = pages(actions, shared)
        if options.check:
            problems += stale_pages(options.reference, files)
        else:
            for name, text in files.items():
                write_if_changed(options.reference / name, text)
    for manual in options.errors:
        problems += update_errors(manual, errors, options.check)
    for problem in problems:
        print(f"docgen: {problem}", file=sys.stderr)
    return 1 if problems and options.check else 0


if __name__ == "__main__":
    sys.exit(main())
