"""What the fuzzers share: their options, and children whose output tells of a fault.

A fuzzer works in rounds. All that happens in a round follows from its seed; the child that runs it
notes each step before it takes it, so that the last line of its notes is where it ended.
"""

import optparse
import os
import random
import re
import signal
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "python"))

import harness

# Seeds of the short form begin here, those of the long form wherever the clock says.
FIRST_SEED = 1
LONG_SECONDS = 560
# What no child may write to its standard error. The interpreter and the sanitizers say so.
COMPLAINTS = re.compile(
    "XXX undetected error|Fatal Python error|AddressSanitizer|runtime error: |LeakSanitizer|"
    "error return without exception set|NULL result without error|bad argument to internal|"
    "negative ref count|Debug memory block|FAULT ")


def options(description):
    """What the command line asks for: first and last seed, steps, seconds."""
    parser = optparse.OptionParser(description=description)
    parser.add_option("--seed", type="int", help="run the round of this seed, here")
    parser.add_option("--last", type="int", help="and all up to this one")
    parser.add_option("--steps", type="int", help="end each round after so many steps")
    parser.add_option("--seconds", type="int", help="run fresh seeds for so long")
    parser.add_option("--verbose", action="store_true", help="show every step")
    chosen, surplus = parser.parse_args()
    if surplus:
        parser.error("no arguments are taken")
    if chosen.seed is not None and chosen.last is None:
        chosen.last = chosen.seed
    if os.environ.get("MORVIK_TEST_LONG") == "1" and chosen.seconds is None:
        chosen.seconds = LONG_SECONDS
    return chosen


def dice(*seeds):
    """Numbers that follow from these."""
    number = 0
    for seed in seeds:
        number = number * 1000003 + seed
    return random.Random(number)


class Child(object):
    """A child of this process that runs rounds; notes and errors are files of their own."""

    def __init__(self, run):
        self.notes = tempfile.TemporaryFile()
        self.errors = tempfile.TemporaryFile()
        sys.stdout.flush()
        self.pid = os.fork()
        if self.pid == 0:
            self._become(run)

    def _become(self, run):
        status = 1
        try:
            os.setsid()
            os.dup2(self.errors.fileno(), 2)
            run(self.notes.fileno())
            status = 0
        except:  # Instances of old classes, too.
            sys.excepthook(*sys.exc_info())
        finally:
            sys.stdout.flush()
            sys.stderr.flush()
            os._exit(status)

    def finish(self, patience):
        """What was wrong with it, or None. It may be silent for so many seconds."""
        size, since = 0, time.time()
        while True:
            ended, status = os.waitpid(self.pid, os.WNOHANG)
            if ended:
                break
            now = sum([os.fstat(each.fileno()).st_size for each in (self.notes, self.errors)])
            if now != size:
                size, since = now, time.time()
            if time.time() - since > patience:
                self.stop()
                return "silent for %d seconds" % patience
            time.sleep(0.01)
        self.stop()
        complaint = COMPLAINTS.search(self.error_text())
        if os.WIFSIGNALED(status):
            return "killed by signal %d" % os.WTERMSIG(status)
        if complaint:
            return "complaint: %s" % complaint.group()
        if os.WEXITSTATUS(status) != 0:
            return "exit status %d" % os.WEXITSTATUS(status)
        return None

    def stop(self):
        """Whatever it left behind ends, too."""
        try:
            os.killpg(self.pid, signal.SIGKILL)
        except OSError:
            pass
        try:
            os.waitpid(self.pid, 0)
        except OSError:
            pass

    def error_text(self):
        self.errors.seek(0)
        return self.errors.read()

    def all_notes(self):
        self.notes.seek(0)
        return self.notes.read().splitlines()


class Fuzzer(object):
    """Runs rounds in children, in batches; what it says at the end counts them."""

    batch = 10
    short_rounds = 150
    patience = 60

    def __init__(self, script, run_rounds):
        self.script = script
        # run_rounds(first, last, steps, notes): called in a child.
        self.run_rounds = run_rounds
        self.rounds = 0
        self.steps = 0
        self.faults = 0

    def main(self, chosen):
        if chosen.seed is not None:
            self.run(chosen.seed, chosen.last, chosen.steps, chosen.verbose)
        elif chosen.seconds is not None:
            self.run_for(chosen.seconds, chosen.steps)
        else:
            for first in range(FIRST_SEED, FIRST_SEED + self.short_rounds, self.batch):
                self.run(first, first + self.batch - 1, chosen.steps)
        print("%d rounds, %d steps, %d faults" % (self.rounds, self.steps, self.faults))
        return self.faults != 0

    def run_for(self, seconds, steps):
        first = int(time.time()) % 10 ** 6 * 1000
        print("seeds from %d" % first)
        end = time.time() + seconds
        while time.time() < end and self.faults < 20:
            self.run(first, first + self.batch - 1, steps)
            first += self.batch

    def run(self, first, last, steps, verbose=False):
        # To see what it complains of among its steps.
        child = Child(lambda notes: self.run_rounds(first, last, steps, verbose and 2 or notes))
        try:
            wrong = child.finish(self.patience)
        except BaseException:
            child.stop()
            raise
        self.rounds += last - first + 1
        notes = child.all_notes()
        self.steps += len(notes)
        if verbose:
            print(child.error_text())
        if wrong is not None:
            self.report(child, wrong, first, last)
        sys.stdout.flush()

    def report(self, child, wrong, first, last):
        self.faults += 1
        print("FAULT in seeds %d to %d: %s" % (first, last, wrong))
        for note in child.all_notes()[-6:]:
            print("    " + note)
        print(child.error_text()[-6000:])
        print("again: ./morvik python -- %s --seed %d --last %d --verbose"
              % (self.script, first, last))
