"""Stops at unhandled exceptions are at just those that nothing catches, in programs of others.

usage: morvik-python tests/exception_stops/proof.py [--verbose] [GROUP | NAME...]

Each program runs twice in processes of its own: with the core counting the exceptions that it
raises, and under the service, which stops where nothing will catch one and goes on.  A stop is true
if its exception then ends the thread or the program, or is printed by the interpreter or by a
library in their name; else it is false, which is wrong but for the few of which `programs` says
that nobody could know it.  An end without a stop is missed; what the interpreter prints and ignores
is for another mode.  Without a name, MORVIK_TEST_LONG asks for all the programs instead of a few.
Status 77 says that none of them is there.
"""

import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import programs

HERE = os.path.dirname(os.path.abspath(__file__))
SKIPPED = 77
PRINTED = re.compile(r"^Exception (?:[\w.<>]+\.)?(\w+)(?:: (.*?))? in .* ignored$",
                     re.MULTILINE | re.DOTALL)
# How programs end in good order.
ORDERLY = ("SystemExit",)


class Run(object):
    """One run of a program: its report, what it wrote, and how it ended."""

    def __init__(self, how, program):
        self.folder = tempfile.mkdtemp()
        try:
            self._run(how, program)
        finally:
            shutil.rmtree(self.folder, True)

    def _run(self, how, program):
        report = os.path.join(self.folder, "report")
        work = os.path.join(self.folder, "work")
        os.mkdir(work)
        command = [launcher(), os.path.join(HERE, "witness.py"), how, report]
        command.extend(program.prepare(work))
        words = open(os.path.join(self.folder, "words"), "w+")
        words.write(program.text)
        words.seek(0)
        output = open(os.path.join(self.folder, "output"), "w+")
        errors = open(os.path.join(self.folder, "errors"), "w+")
        self.started = time.time()
        process = subprocess.Popen(
            command, cwd=program.working_folder(work), env=program.environment(work), stdin=words,
            stdout=output, stderr=errors, preexec_fn=os.setsid)
        while process.poll() is None and time.time() - self.started < program.time_limit:
            time.sleep(0.01)
        self.is_late = process.poll() is None
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except OSError:
            pass    # nothing of it is left
        self.status = process.wait()
        self.seconds = time.time() - self.started
        self.lines = []
        if os.path.exists(report):
            self.lines = [eval(line) for line in open(report) if line.endswith("\n")]
        self.output = read(output)
        self.errors = read(errors)

    def of(self, *kinds):
        return [values for kind, values in self.lines if kind in kinds]


def read(stream):
    stream.seek(0)
    text = stream.read()
    stream.close()
    return text


def launcher():
    return os.environ.get("MORVIK_PYTHON_EXE") or os.readlink("/proc/self/exe")


class Verdict(object):
    """What the stops of a run under the service were worth."""

    def __init__(self, run):
        self.run = run
        self.stops = run.of("stop")
        self._pending = dict((each["number"], each) for each in self.stops)
        self._cleanups = dict((each["number"], each["cleanups"]) for each in run.of("chain"))
        self.missed = []
        self.true = []
        for end in run.of("program", "thread", "atexit"):
            if not self._settle(self._same(end), end) and end["type"] not in ORDERLY \
                    and not self._is_known(end):
                self.missed.append("%s: %s" % (end["type"], end["where"]))
        for end in run.of("printed"):
            self._settle(self._same(end), end)
        for printed in PRINTED.finditer(run.errors):
            self._settle(self._of_text(*printed.groups()), None)
        self._settle_replaced()
        self.false = [self._pending[number] for number in sorted(self._pending)]

    def _settle(self, stop, end):
        if stop is None:
            return False
        del self._pending[stop["number"]]
        self.true.append((stop, end))
        return True

    def _settle_replaced(self):
        """An exception may meet its end in a finally clause that raises another one."""
        for stop in reversed(self.stops):
            if stop["number"] in self._pending:
                if [1 for later, _ in self.true if self._replaces(later, stop)]:
                    self._settle(stop, None)

    def _replaces(self, later, stop):
        places = dict((frame, place) for frame, place, _ in self._cleanups[later["number"]])
        return later["number"] > stop["number"] and later["thread"] == stop["thread"] and [
            1 for frame, _, clauses in self._cleanups[stop["number"]] for first, last in clauses
            if first <= places.get(frame, -1) <= last]

    def _same(self, end):
        """The stop at this exception.  If its address was another's before, the last one is."""
        found = [stop for stop in self._pending.values() if stop["thread"] == end["thread"]
                 and stop["keys"] and stop["keys"][0] in end["keys"]]
        return found and max(found, key=lambda stop: stop["number"]) or None

    def _is_known(self, end):
        return [1 for _, known in self.true if known is not None and known["keys"] and
                known["keys"][-1] in end["keys"]]

    def _of_text(self, type, text):
        found = [stop for stop in self._pending.values() if stop["type"] == type
                 and (text is None or text in stop["texts"])]
        return found and min(found, key=lambda stop: stop["number"]) or None

    def stories(self, unknowable):
        """Each place where there were false stops but for those, with the first of them."""
        chains = dict((each["number"], each["lines"]) for each in self.run.of("chain"))
        times = {}
        for stop in self.false:
            if [1 for type, function in unknowable
                    if stop["type"] == type and ")%s() " % function in stop["where"]]:
                continue
            times.setdefault(repr(chains[stop["number"]][:3]), []).append(stop)
        return ["%d false: %s" % (len(stops), self._story(stops[0])) for stops in times.values()]

    def _story(self, stop):
        number = stop["number"]
        lines = ["%s %s at %s%s" % (stop["type"], stop["texts"][:1], stop["where"],
                                    stop["is_end"] and "  [said to be the end]" or "")]
        for chain in self.run.of("chain"):
            if chain["number"] == number:
                lines.extend("    #%d %s" % pair for pair in enumerate(chain["lines"][:12]))
        lines.append("  then:")
        lines.extend("    " + each["event"] for each in self.run.of("next")
                     if each["number"] == number)
        return "\n".join(lines)


class Figures(object):
    """What a program, or a group of them, came to."""

    def __init__(self):
        self.programs = self.raised = self.stops = self.true = self.missed = self.wrong = 0

    def add(self, other):
        for name in vars(self):
            setattr(self, name, getattr(self, name) + getattr(other, name))

    def row(self, name):
        return "| %s | %d | %d | %d | %d | %d | %d |" % (
            name, self.programs, self.raised, self.stops, self.true, self.stops - self.true,
            self.missed)


def examine(program, verbose):
    """Runs one program both ways and says how that went: its Figures."""
    counted = Run("count", program)
    under = Run(program.how, program)
    verdict = Verdict(under)
    figures = Figures()
    figures.programs = 1
    figures.stops, figures.true = len(verdict.stops), len(verdict.true)
    figures.missed = len(verdict.missed)
    wrong = verdict.stories(program.unknowable)
    wrong.extend("missed: " + each for each in verdict.missed)
    for each in counted.of("raised"):
        figures.raised = each["number"]
    if not counted.of("raised"):
        wrong.append("not counted, status %s\n%s" % (counted.status, counted.errors[-2000:]))
    if not under.of("over") or under.is_late:
        wrong.append("not over, status %s\n%s" % (under.status, under.errors[-2000:]))
    if counted.status != under.status:
        wrong.append("ends with status %d where it ends with %d alone\n%s" % (
            under.status, counted.status, under.errors[-2000:]))
    figures.wrong = len(wrong)
    print("%s  %s: %d raised, %d stops, %d true (%.1f s and %.1f s, status %s)" % (
        wrong and "failed" or "passed", program.name, figures.raised, figures.stops, figures.true,
        counted.seconds, under.seconds, under.status))
    for line in wrong:
        print("    " + line.replace("\n", "\n    "))
    if verbose:
        print(under.output[-3000:] + under.errors[-3000:])
    sys.stdout.flush()
    return figures


def main(arguments):
    verbose = "--verbose" in arguments
    names = [each for each in arguments if each != "--verbose"]
    chosen = programs.chosen(
        names or (not os.environ.get("MORVIK_TEST_LONG") and programs.A_FEW or []))
    total = Figures()
    rows = []
    for group in sorted(chosen):
        figures = Figures()
        for program in chosen[group]:
            figures.add(examine(program, verbose))
        if figures.programs:
            rows.append(figures.row(group))
        total.add(figures)
    if not total.programs:
        print("skipped: none of the programs is there")
        return SKIPPED
    print("| programs | | raised | stops | true | false | missed |")
    print("\n".join(rows + [total.row("all")]))
    return total.wrong != 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
