"""Lets memory run out inside the core, at every place of every scenario.

usage: faults tests/faults/faults.py [SCENARIO [WAY [FROM [TO]]]]

A scenario is repeated with one allocation failing, then another, and so on. WAY says what fails:
"allocation" a single one, by the core or by the interpreter for it; "call" a single call that the
core makes; "all" everything from there on. Where the core asks for memory from the same place
again and again, the first times are tried.

Each process goes through many of them. After each, nothing may be pending, the scenario must have
come to the same end or something must have been reported, and it must come to the same end when
memory is back; what it holds must not add up. In "cold" processes it is the first scenario that
fails, so that nothing is known yet; all of it cannot fail there, as there is nothing to see then.
In short each scenario goes through every 15th place in one of the ways, with MORVIK_TEST_LONG=1
through every place in each way, up to TIMES times.
"""

import gc
import itertools
import marshal
import os
import re
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import traceback

import injection

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import scenarios

LONG = os.environ.get("MORVIK_TEST_LONG") == "1"
STRIDE = 15
TIMES = {"allocation": 2, "call": 2, "all": 1}  # how often a place is tried in the long form
NOISE = 3           # references that come and go by themselves
BATCH = 40          # places for one process
TIME_LIMIT = 60     # seconds for one place
WAYS = {"allocation": 1, "call": 2, "all": 3}

# Functions of the interpreter that do not survive it when memory is refused to them, or leave
# something behind, and why.
INTERPRETERS_OWN = {
    "PyCode_Optimize": "returns no code and sets no error, which a debug build asserts",
    "_PyObject_DebugReallocApi": "takes a block that is to shrink for one that cannot fail to",
    "do_ignore": "goes on making tuples with an error pending",
    "PyArena_AddPyObject": "fails unnoticed, and the compiler goes on with an error pending",
    "symtable_new": "sets no error, and the compiler raises SystemError for it",
    "PyAST_Compile": "does not give back all that it has made",
}

# Of those, what explains but the references that are kept.
KEEPS_REFERENCES = ("PyAST_Compile",)

# What this function of the core calls is the import callback, and an error of that stays set beside
# the import's result: a call that is refused cannot be told from it.
CALLS_CALLBACK = "morvik::(anonymous namespace)::call_import_cb("

# Where the scenarios' files lie; one process at a time writes there.
ROOT = os.path.realpath(tempfile.mkdtemp())

gettotalrefcount = getattr(sys, "gettotalrefcount", lambda: 0)


def kind(message):
    """A message without what differs from run to run."""
    return re.sub(r"0x[0-9a-f]+|-?\d+", "N", message)


class Outcome(object):
    """How a scenario went."""

    def __init__(self, seen, errors, kinds, quiet):
        self.seen = seen            # what the debug server got to see
        self.errors = errors        # what the core raised to it: (function, error, text)
        self.kinds = set(kinds)     # of diagnostic messages
        self.quiet = quiet

    def to_say(self):
        return self.seen, self.errors, list(self.kinds), self.quiet


class Judge(object):
    """Runs one scenario in this process."""

    def __init__(self, scenario, quiet):
        self.scenario = scenario
        self.quiet = quiet
        self.stacks = ([], [], [])

    def run(self):
        # Always the same: names of files stay known for good.
        folder = os.path.join(ROOT, "program")
        shutil.rmtree(folder, ignore_errors=True)   # a process that crashed leaves it
        os.mkdir(folder)
        session = scenarios.Session(folder, self.quiet)
        try:
            self.scenario(session)
        finally:
            session.stop_trace()
            shutil.rmtree(folder)
        messages = [message.replace(folder, "FOLDER") for message in session.stream.messages]
        seen = re.sub("0x[0-9a-f]+", "ADDRESS", repr(session.seen).replace(folder, "FOLDER"))
        return Outcome(seen, session.errors,
                       [kind(message) for message in messages], self.quiet)

    def run_armed(self, way, place):
        injection.arm(WAYS[way], place)
        try:
            outcome = self.run()
        finally:
            self.count, self.failed, fault = injection.disarm()
            self.stacks = injection.stacks()
        scenarios.core.stop_trace()
        self.complaints = [fault] * bool(fault)
        return outcome

    def complain(self, text, *arguments):
        self.complaints.append(text % arguments)

    def judge(self, outcome, expected, way):
        for name, error, text in outcome.errors:
            if (error, text) == ("RuntimeError", "init must be called first"):
                continue    # the failure before that is among the errors, too
            if error != "MemoryError":
                self.complain("%s raised %s: %s", name, error, text)
            elif text != "Out of memory":
                self.complain("%s raised MemoryError with the text %r", name, text)
        reported = outcome.errors or outcome.kinds - expected.kinds
        if outcome.seen != expected.seen and not (reported or outcome.quiet or way == "all"):
            self.complain("lost without a report: %s instead of %s", outcome.seen, expected.seen)

    def judge_after(self, outcome, expected):
        if outcome.errors:
            self.complain("with memory back: %r", outcome.errors)
        if outcome.seen != expected.seen:
            self.complain("with memory back: %s instead of %s", outcome.seen, expected.seen)

    def settle(self):
        """Drops what only waits to be dropped; the references that are left."""
        frame = sys._getframe()
        while len(sys._current_frames()) > 1:
            time.sleep(0.001)   # a thread that was joined may not be quite over
        # Code in code goes one level at a time.
        for level in range(4):
            for i in range(5001):
                scenarios.core.get_frame_file(frame)
            gc.collect()
        sys.exc_clear()
        return gettotalrefcount()

    def growth(self, way, place, times):
        """By how much references grow as the same place fails again and again."""
        before = self.settle()
        for i in range(times):
            self.run_armed(way, place)
            self.run()
        return self.settle() - before

    def check_references(self, way, place):
        times = 6
        self.growth(way, place, 2)
        # A thread that ended leaves its record until its address comes up again, and the like; a
        # leak shows each time.
        for again in range(3):
            grown = self.growth(way, place, times)
            if grown < times:
                return
        self.complain("%d references kept by %d failures", grown, times)


def import_core():
    import tmorvik26_vs2012_x64
    scenarios.core = tmorvik26_vs2012_x64


def list_places(judge, is_cold, way, say):
    """Says how often the place of each allocation, in turn, had come up before."""
    injection.note_crashes()
    if not is_cold:
        import_core()
        for i in range(3):
            judge.run()
        judge.settle()
    injection.arm(WAYS[way], 0)
    import_core()
    judge.run()
    injection.disarm()
    say(injection.occurrences())


def warm(judge, way, places, say):
    """The process knows already all that the scenario has to do with."""
    import_core()
    expected = [judge.run() for i in range(3)][-1]
    tried = []
    before = judge.settle()
    for place in places:
        say("at", place)
        outcome = judge.run_armed(way, place)
        if judge.failed:
            judge.judge(outcome, expected, way)
            judge.judge_after(judge.run(), expected)
            say("judged", judge.complaints, judge.stacks)
            tried.append(place)
    if not gettotalrefcount() or judge.settle() <= before:
        return
    # What was met for the first time is kept; the same again adds nothing.
    for again in range(2):
        before = judge.settle()
        for place in tried:
            say("at", place)
            judge.run_armed(way, place)
            judge.run()
        if judge.settle() - before <= NOISE:
            return
    for place in tried:
        say("at", place)
        judge.run_armed(way, place)
        judge.check_references(way, place)
        say("judged", judge.complaints, judge.stacks)


def cold(judge, way, places, say):
    """The process sees all of it for the first time, the core itself included."""
    place, = places
    say("at", place)
    injection.arm(WAYS[way], place)
    try:
        import_core()
    except Exception, error:
        # The interpreter has more than one way to say that a module's start failed.
        if type(error) not in (MemoryError, SystemError, ImportError):
            say("judged", ["the import raised %r" % (error,)], injection.stacks())
        injection.disarm()
        judge.stacks = injection.stacks()
        import_core()
        outcome = judge.run()
        judge.complaints = []
    else:
        outcome = judge.run()
        judge.count, judge.failed, fault = injection.disarm()
        judge.stacks = injection.stacks()
        judge.complaints = [fault] * bool(fault)
        judge.judge(outcome, judge.at_first, way)
    scenarios.core.stop_trace()
    judge.judge_after(judge.run(), judge.later)
    say("judged", judge.complaints, judge.stacks)


class Child(object):
    """A process that goes through some places; it tells of each."""

    def __init__(self, work, *arguments):
        self.output = tempfile.TemporaryFile()
        reading, writing = os.pipe()
        self.process = os.fork()
        if self.process == 0:
            try:
                os.setpgid(0, 0)
                os.close(reading)
                for stream in (1, 2):
                    os.dup2(self.output.fileno(), stream)
                injection.note_crashes()
                gc.disable()
                results = os.fdopen(writing, "w")
                work(*(arguments + (lambda *said: (marshal.dump(said, results),
                                                   results.flush()),)))
                status = 0
            except:
                traceback.print_exc()
                status = 1
            os._exit(status)
        os.close(writing)
        self.results = os.fdopen(reading)

    def said(self):
        """What it says, in turn; None where it takes too long."""
        while True:
            if not select.select([self.results], [], [], TIME_LIMIT)[0]:
                yield None
                return
            try:
                yield marshal.load(self.results)
            except EOFError:
                return

    def end(self):
        """How it ended, in words, or nothing where it ended well."""
        try:
            os.killpg(self.process, signal.SIGKILL)
        except OSError:
            pass
        status = os.waitpid(self.process, 0)[1]
        self.results.close()
        if os.WIFSIGNALED(status) and os.WTERMSIG(status) == signal.SIGKILL:
            return "took longer than %d seconds" % TIME_LIMIT
        if status != 0:
            return "ended by signal %d" % (status & 0x7f) if status & 0x7f else "raised an error"
        return ""

    def text(self):
        self.output.seek(0)
        return self.output.read()


def lines_of(addresses):
    """The functions that call each other, innermost first."""
    if not addresses:
        return []
    process = subprocess.Popen(
        ["addr2line", "-Cfspe", os.readlink("/proc/self/exe")] + ["%x" % (address - 1)
                                                                   for address in addresses],
        stdout=subprocess.PIPE)
    return process.communicate()[0].splitlines()


class Report(object):
    """Counts and failures of the whole run."""

    def __init__(self):
        self.places = 0
        self.failures = 0
        self.own = {}

    def fail(self, again, complaint, stacks, output=""):
        refused, crashed, fault = [lines_of(stack) for stack in stacks]
        if not crashed and [line for line in refused[:3] if line.startswith(CALLS_CALLBACK)]:
            return
        for line in refused + fault:
            function = line.split(" at ")[0].split("(")[0]
            if function in INTERPRETERS_OWN and (
                    function not in KEEPS_REFERENCES or "references kept" in complaint):
                self.own[function] = self.own.get(function, 0) + 1
                return
        self.failures += 1
        print("FAILED %s: %s" % (again, complaint))
        for title, lines in (("memory was refused in", refused), ("it crashed in", crashed),
                             ("at fault", fault)):
            if lines:
                print("  %s" % title)
                print("".join("    %s\n" % line for line in lines[:25]).rstrip())
        if output.strip():
            print("  it said:\n    " + "\n    ".join(output.strip().splitlines()[-12:]))
        sys.stdout.flush()


def name_of(scenario, quiet, is_cold):
    return scenario.__name__ + "_quietly" * quiet + "_cold" * is_cold


def unharmed(judge, say):
    import_core()
    say([judge.run().to_say() for i in range(2)])


def answer_of(work, *arguments):
    """What a process of its own says."""
    child = Child(work, *arguments)
    answers = list(child.said())
    ending = child.end()
    if ending:
        sys.exit("%s: %s" % (ending, child.text()))
    return answers[0][0]


def go_through(report, judge, name, is_cold, way, choose):
    if is_cold:
        judge.at_first, judge.later = [Outcome(*said) for said in answer_of(unharmed, judge)]
    places = choose(answer_of(list_places, judge, is_cold, way))
    report.places += len(places)
    while places:
        batch = places[:[BATCH, 1][is_cold]]
        child = Child([warm, cold][is_cold], judge, way, batch)
        at = batch[0]
        for said in child.said():
            if said is None:
                break
            if said[0] == "at":
                at = said[1]
            elif said[0] == "judged":
                for complaint in said[1]:
                    report.fail("%s %s %s" % (name, way, at), complaint, said[2])
        ending = child.end()
        if ending:
            report.fail("%s %s %s" % (name, way, at), ending, injection.stacks(),
                        child.text())
            # Those behind it are the next process's.
            batch = batch[:batch.index(at) + 1]
        places = places[len(batch):]


def main(wanted_scenario=None, wanted_way=None, first=None, last=None):
    report = Report()
    chosen = [(scenario, quiet, is_cold) for is_cold in (False, True)
              for scenarios_of, quiet in ((scenarios.SCENARIOS, False), (scenarios.QUIET, True))
              for scenario in scenarios_of
              if wanted_scenario in (None, name_of(scenario, quiet, is_cold))]
    for turn, one in enumerate(itertools.product(chosen, sorted(WAYS))):
        (scenario, quiet, is_cold), way = one
        ways = [name for name in sorted(WAYS) if not is_cold or name != "all"]
        if wanted_way is None and not LONG:
            ways = [ways[turn // len(WAYS) % len(ways)]]
        if way not in ways or wanted_way not in (None, way):
            continue

        def choose(occurrences):
            if first is not None:
                return range(int(first), int(last or first) + 1)
            times = 1
            if LONG and not is_cold:
                times = TIMES[way]
            places = [place for place, before in enumerate(occurrences, 1)
                      if before < times]
            return [places[turn % STRIDE::STRIDE], places][LONG]
        before = report.places
        started = time.time()
        name = name_of(scenario, quiet, is_cold)
        go_through(report, Judge(scenario, quiet), name, is_cold, way, choose)
        print("%-28s %-10s %6d places, %5.1f s" % (name, way, report.places - before,
                                                  time.time() - started))
        sys.stdout.flush()
    for function, times in sorted(report.own.items()):
        print("%d in %s: it %s" % (times, function, INTERPRETERS_OWN[function]))
    print("%d places, %d failures" % (report.places, report.failures))
    return report.failures != 0 or report.places == 0


if __name__ == "__main__":
    try:
        result = main(*sys.argv[1:])
    finally:
        shutil.rmtree(ROOT)
    sys.exit(result)
