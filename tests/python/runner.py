"""Runs the tests of one file, each in a fresh process of the host.

usage: morvik-python tests/python/runner.py FILE [TestClass | TestClass.test_name]...

The core is initialised once in a process's life and a defect in it may take the process along,
so every test method gets an interpreter of its own.  A test passes only if it said so itself
and its interpreter then shut down with status 0 within the time limit.  Its output is shown
when it did not pass.
"""

import imp
import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import harness

TIME_LIMIT = 150

PASSED = "passed"
FAILED = "failed"
SKIPPED = "skipped"


def load(path):
    folder, name = os.path.split(os.path.abspath(path))
    sys.path.insert(0, folder)
    return imp.load_source(os.path.splitext(name)[0], path)


def test_names(path):
    names = []
    for suite in unittest.TestLoader().loadTestsFromModule(load(path)):
        for test in suite:
            names.append(".".join(test.id().split(".")[-2:]))
    return names


def selected(names, wanted):
    chosen = []
    for want in wanted:
        matching = [name for name in names if want in (name, name.split(".")[0])]
        if not matching:
            sys.exit("no such test: %s" % want)
        chosen.extend(matching)
    return chosen or names


class Verdict(unittest.TestResult):
    """Remembers the outcome of a single test; prints what went wrong."""

    def __init__(self):
        unittest.TestResult.__init__(self)
        self.reason = None

    def addFailure(self, test, err):
        unittest.TestResult.addFailure(self, test, err)
        sys.stderr.write(self.failures[-1][1])

    def addError(self, test, err):
        # 2.6 knows no skipping: there harness.Skipped is one more error.
        if err[0] is harness.Skipped:
            self.addSkip(test, str(err[1]))
            return
        unittest.TestResult.addError(self, test, err)
        sys.stderr.write(self.errors[-1][1])

    def addSkip(self, test, reason):
        self.reason = reason

    def text(self):
        if self.failures or self.errors or self.testsRun != 1:
            return FAILED
        if self.reason is not None:
            return "%s %s" % (SKIPPED, self.reason)
        return PASSED


def run_here(path, name, report):
    """The child's part: runs one test and writes its verdict to the file named by report."""
    test = unittest.TestLoader().loadTestsFromName(name, load(path))
    verdict = Verdict()
    test.run(verdict)
    output = open(report, "w")
    output.write(verdict.text())
    output.close()


def describe_status(status):
    if status < 0:
        for name in dir(signal):
            if name.startswith("SIG") and "_" not in name and getattr(signal, name) == -status:
                return "killed by %s" % name
        return "killed by signal %d" % -status
    return "exit status %d" % status


class Child(object):
    """One test in its process."""

    def __init__(self, path, name):
        self.output = tempfile.TemporaryFile()
        self.report = tempfile.NamedTemporaryFile()
        self.started = time.time()
        self.process = subprocess.Popen(
            [harness.launcher(), os.path.abspath(__file__), "--child", path, name,
             self.report.name],
            stdin=open(os.devnull), stdout=self.output, stderr=subprocess.STDOUT,
            preexec_fn=os.setsid)

    def kill(self):
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except OSError:
            pass
        self.process.wait()

    def finish(self):
        """(PASSED, FAILED or SKIPPED; the reason of either of the latter)."""
        while self.process.poll() is None:
            if time.time() - self.started > TIME_LIMIT:
                self.kill()
                return FAILED, "not done after %d seconds" % TIME_LIMIT
            time.sleep(0.005)
        said = self.report.read()
        if self.process.returncode != 0:
            return FAILED, describe_status(self.process.returncode)
        if said == PASSED:
            return PASSED, ""
        if said.startswith(SKIPPED):
            return SKIPPED, said[len(SKIPPED) + 1:]
        return FAILED, said and "assertion or error" or "ended before the test did"

    def text(self):
        self.output.seek(0)
        return self.output.read()


def main(path, wanted):
    counts = {PASSED: 0, FAILED: 0, SKIPPED: 0}
    notes = []
    for name in selected(test_names(path), wanted):
        child = Child(path, name)
        try:
            outcome, reason = child.finish()
        except:
            child.kill()
            raise
        counts[outcome] += 1
        print("%-7s %s (%.2f s)" % (outcome, name, time.time() - child.started))
        if outcome == FAILED:
            print("------- %s: %s" % (name, reason))
            print(child.text())
        if outcome == SKIPPED:
            notes.append("skipped %s: %s" % (name, reason))
        sys.stdout.flush()
    for note in notes:
        print(note)
    summary = "%d passed, %d failed" % (counts[PASSED], counts[FAILED])
    if counts[SKIPPED]:
        summary += ", %d skipped" % counts[SKIPPED]
    print(summary)
    return counts[FAILED] != 0 or counts[PASSED] + counts[SKIPPED] == 0


if __name__ == "__main__":
    if sys.argv[1:2] == ["--child"]:
        run_here(sys.argv[2], sys.argv[3], sys.argv[4])
    elif len(sys.argv) < 2:
        sys.exit(__doc__)
    else:
        sys.exit(main(sys.argv[1], sys.argv[2:]))
