"""A folder of its own for a test. A process beside the test's keeps it and waits for the end of that one,
so that nothing stays behind of a test that is killed."""

import os
import shutil
import signal
import tempfile


class ScratchFolder:
    """`name` is its path; `cleanup`, the end of a `with` and the end of the process remove it."""

    def __init__(self):
        ear, self._lifeline = os.pipe()
        told, mouth = os.pipe()
        between = os.fork()
        if between == 0:
            # The keeper is nobody's child, and is not found among those of the test.
            if os.fork() == 0:
                self._keep(ear, mouth)
            os._exit(0)
        os.waitpid(between, 0)
        os.close(ear)
        os.close(mouth)
        self.name = os.fsdecode(os.read(told, 4096))
        os.close(told)

    def __enter__(self):
        return self.name

    def __exit__(self, *_):
        self.cleanup()

    def cleanup(self):
        shutil.rmtree(self.name, ignore_errors=True)
        if self._lifeline is not None:
            os.close(self._lifeline)
            self._lifeline = None

    @staticmethod
    def _keep(ear, mouth):
        """Makes the folder, tells its name, and removes it when every process that could write to the
        lifeline is gone: so there is no moment at which it would stay behind."""
        try:
            os.setsid()
            for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM, signal.SIGPIPE):
                signal.signal(number, signal.SIG_IGN)
            name = tempfile.mkdtemp(prefix="kvfile-test-")
            try:
                os.write(mouth, os.fsencode(name))
                os.dup2(ear, 0)
                os.closerange(1, 1024)
                os.read(0, 1)
            finally:
                shutil.rmtree(name, ignore_errors=True)
        finally:
            os._exit(0)
