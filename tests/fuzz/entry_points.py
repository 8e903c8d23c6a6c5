"""Calls every entry point of the core with hostile arguments, from everywhere.

usage: ./morvik python -- tests/fuzz/entry_points.py [--seed N [--last M]] [--steps N] [--verbose]

A call ends in a result or in an exception. Afterwards a program stops at its breakpoint and is
stepped as ever, and in a debug host no reference is left behind.
"""

import __builtin__
import gc
import os
import string
import sys
import thread
import threading
import time

import fuzzing
import hostile
import harness
import method_table
from harness import core

HERE = os.path.dirname(os.path.abspath(__file__))
PROGRAM = os.path.join(HERE, "program.py")
CODE = compile(open(PROGRAM).read(), PROGRAM, "exec")
SCENARIO = ["inner 6", "inner 7", "inner 6", "work 37"]
STEPS = 40
DEPTH = 2
# Where the references are counted: this many times the same round.
REPEATS = 3
PROOF = 8

# What an entry point is meant to be given, a letter for each argument.
TEMPLATES = {
    "set_autoquit": "i", "set_idle_period": "n", "set_debug_all_threads": "i",
    "set_debug_thread_cb": "P", "step_over_line_range": "ll", "get_curr_frame": "T",
    "get_thread_name": "T", "is_botframe": "F", "set_break": "fliics", "clear_breaks": "fl",
    "enable_breaks": "fli", "ignore_breaks": "fli", "set_breaks_cond": "flc", "get_breaks": "fl",
    "get_file_breaks": "f", "set_exception_mode": "m", "ignore_exception_loc": "fli",
    "exception_loc_ignored": "fl", "set_always_stop_excepts": "E", "set_never_stop_excepts": "E",
    "set_ignored_exception_handlers": "D", "set_exc_catch_info_list": "L", "set_import_cb": "I",
    "register_module": "M", "register_sub_language_hook": "H", "sub_language_get_active_hook": "T",
    "sub_language_get_frame_category": "TF", "add_to_tstate_tracing": "i",
    "set_tstate_use_tracing": "i", "raise_exception": "iX", "locals_to_fast": "F",
    "get_frame_file": "F", "get_thread_ident_for_tstate_id": "T", "is_internal_frame": "F",
    "PyFile_SetEncoding": "Ut", "PyFile_WriteObject": "oUi", "WaitForInput": "WS",
    "CopyIntoBuffer": "Bit", "PyFrame_LocalsToFast": "Fi", "trace_dispatch": "Feo",
    "bootstrap_new_thread": "Feo", "__import__": "u",
}
FUNCTIONS = [name for name, _ in method_table.FUNCTIONS]
CONDITIONS = ["", "1", "0", "n", "1/0", "fuzz_act()", "fuzz_act() or 1", "x = 1", "(", "\0", u"\xe9",
              "[i for i in (1, 2)]", "locals()", "__import__('string')", "x" * 3000, None]
# They have events raise what they like, even inside import_cb.
RAISING = ("raise_exception", "add_to_tstate_tracing", "set_tstate_use_tracing")
EVENTS = ["call", "line", "return", "exception", "c", "", "x", "c_call", "\xff"]


class World(object):
    """The round that runs: what it has to do with the core next, and with what."""

    def __init__(self, notes):
        self.notes = notes
        self.muted = True
        self.scenario = None
        self.files = hostile.Files()
        self.frames = hostile.Frames()
        self.depth = self.nested = self.importing = 0
        self.threads = []
        self.codes = [value.func_code for value in self._run_program().values()
                      if hasattr(value, "func_code")] + [CODE]
        self.places = [PROGRAM, os.path.relpath(PROGRAM), "program.py", PROGRAM.upper(),
                       os.path.join(HERE, "..", "fuzz", "program.py"), HERE]
        # One object each, whatever is done how often: init() keeps those of other calls, too.
        self.callbacks = dict((name, getattr(self, name)) for name in (
            "install_thread_hooks_cb", "idle_cb", "line_cb", "return_cb", "exception_cb",
            "quit_cb", "import_cb", "policy_cb", "stream"))
        self.internal = {}
        self.init_arguments = [
            0.0, 2, self.callbacks["install_thread_hooks_cb"], self.callbacks["idle_cb"],
            self.callbacks["line_cb"], self.callbacks["return_cb"], self.callbacks["exception_cb"],
            self.callbacks["quit_cb"], self.callbacks["import_cb"], harness.INTERPRETERS_IMPORT,
            None, self.internal]
        __builtin__.fuzz_act = self.act

    # A round.

    def run(self, seed, limit):
        self.seed, self.limit, self.count = seed, limit, 0
        self.rng = fuzzing.dice(seed)
        self.wild = self.rng.random() < 0.2
        self.loud = self.rng.random() < 0.2
        self.values = hostile.Values(self.rng, self.frames, self.files, self.places, self.codes)
        self.collecting = self.rng.random() < 0.2
        self.muted = False
        self._robustly(self.everywhere)
        self.end()

    def everywhere(self):
        if self.collecting:
            gc.set_threshold(1)
        self._robustly(self.some_steps, "idle")
        self._robustly(self.traced)
        if self.rng.random() < 0.3:
            self._robustly(self.in_a_thread)
        self._robustly(self.traced)
        if self.rng.random() < 0.06:
            self._robustly(self.in_a_fork)

    def _robustly(self, function, *arguments):
        """What is planted to be raised is raised anywhere; instances of old classes are, too."""
        try:
            try:
                try:
                    function(*arguments)
                except:
                    pass
            except:
                pass
        except:
            pass

    def end(self):
        self.muted = True
        gc.set_threshold(700)
        self._robustly(self.recover)
        self._robustly(self.recover)
        for _ in range(2):
            for each in self.threads:
                each.acquire()
                each.release()
            del self.threads[:]
        self._robustly(self.recover)
        self.values.containers = []
        self.values = None
        self.check_scenario()
        self._robustly(core.reset)
        sys.exc_clear()
        del gc.garbage[:]
        gc.collect()
        del gc.garbage[:]

    def recover(self):
        core.release_sorrel_mutex()
        # The least number has no opposite.
        core.add_to_tstate_tracing(-(core.get_tstate_tracing() // 2))
        core.add_to_tstate_tracing(-core.get_tstate_tracing())
        sys.settrace(None)
        core.set_tstate_use_tracing(0)
        # What init() finds in the place of it stays referenced.
        core.set_import_cb(self.callbacks["import_cb"])
        self._robustly(core.stop_trace)
        self.internal.clear()
        core.init(*self.init_arguments)
        core.set_ignored_exception_handlers(None)
        threading.settrace(None)
        core.get_new_imports()
        core.get_changed_bps_lists()

    def check_scenario(self):
        self.scenario = []
        self.requests = ["step_over", "step_over", "step_out", "continue_run"]
        core.init(*self.init_arguments)
        core.set_exception_mode(0)
        core.set_break(PROGRAM, 6, 1, 1, None, 0)
        core.start_trace()
        core.continue_run()
        try:
            self._run_program()
        finally:
            core.stop_trace()
        if self.scenario != SCENARIO:
            self.fault("the debugger is not what it was: %r" % self.scenario)
        self.scenario = None

    def _run_program(self):
        names = {"__name__": "fuzz_program", "__file__": PROGRAM}
        exec CODE in names
        return names

    def fault(self, text):
        """Ends the process: what comes after the first fault tells nothing."""
        os.write(2, "FAULT seed %d step %d: %s\n" % (self.seed, self.count, text))
        os._exit(1)

    # Where steps are taken.

    def some_steps(self, site, most=6):
        for _ in range(self.rng.randint(1, most)):
            self._robustly(self.step, site)

    def traced(self):
        core.init(*self.init_arguments)
        if self.loud:
            arguments = list(self.init_arguments)
            arguments[10] = self.callbacks["stream"]
            core.init(*arguments)
        core.set_exception_mode(self.rng.choice([0, 1, 2, 2, 4]))
        core.set_idle_period(0.0)
        if self.rng.random() < 0.3:
            core.set_debug_thread_cb(self.callbacks["policy_cb"])
        if self.rng.random() < 0.3:
            core.set_exc_catch_info_list(self.values.catch_list())
        if self.rng.random() < 0.3:
            core.register_sub_language_hook(self.values.hook())
        for _ in range(self.rng.randint(0, 4)):
            core.set_break(PROGRAM, self.rng.randint(5, 42), 1, self.rng.randint(0, 1),
                           self.rng.choice(["fuzz_act()", "1", None, "1/0"]), 0)
        core.start_trace()
        self._robustly(self.some_steps, "tracing", 3)
        self.rng.choice([core.step_into, core.continue_run])()
        self._robustly(self._run_program)
        self._robustly(self.some_steps, "tracing", 3)
        core.stop_trace()

    def in_a_thread(self):
        over = thread.allocate_lock()
        over.acquire()
        self.threads.append(over)

        def body():
            self._robustly(self.some_steps, "thread")
            self._robustly(self._run_program)
            self._robustly(core.release_sorrel_mutex)
            self._robustly(sys.settrace, None)
            self._robustly(core.release_sorrel_mutex)
            self._robustly(core.thread_exiting)
            over.release()
        thread.start_new_thread(self._robustly, (body,))
        # It may be waiting for the thread that started it.
        end = time.time() + 0.05
        while over.locked() and time.time() < end:
            time.sleep(0.001)

    def in_a_fork(self):
        child = os.fork()
        if child == 0:
            status = 3
            try:
                # Threads are not here to end.
                del self.threads[:]
                self._robustly(self.some_steps, "fork")
                self._robustly(self.traced)
                self.end()
                status = 0
            finally:
                os._exit(status)
        end = time.time() + 30
        while True:
            ended, status = os.waitpid(child, os.WNOHANG)
            if ended:
                break
            if time.time() > end:
                os.kill(child, 9)
                os.waitpid(child, 0)
                status = "no end"
                break
            time.sleep(0.002)
        if status != 0:
            self.fault("forked child: %s" % status)

    # The debug server.

    def _called(self, site):
        if self.muted:
            return
        if self.nested < DEPTH:
            self.nested += 1
            try:
                # Every module that is there is told of.
                most = 2 if site != "import_cb" or self.rng.random() < 0.03 else 0
                for _ in range(self.rng.randint(0, most)):
                    self._robustly(self.step, site)
            finally:
                self.nested -= 1
        if site not in ("import_cb", "stream") and self.rng.random() < 0.05:
            raise ValueError(site)

    def _go_on(self):
        if self.count < self.limit:
            self.rng.choice([core.step_into, core.step_over, core.step_out, core.step_over_line,
                             core.stop, core.continue_run, core.step_into])()
        else:
            core.continue_run()

    def line_cb(self, frame, changed):
        if self.scenario is not None:
            self.scenario.append("%s %d" % (frame.f_code.co_name, frame.f_lineno))
            getattr(core, self.requests.pop(0))()
            return
        self._go_on()
        self._called("line_cb")

    def return_cb(self, frame, value, changed):
        if self.scenario is not None:
            return
        self._go_on()
        self._called("return_cb")

    def exception_cb(self, frame, info, changed):
        self._called("exception_cb")

    def idle_cb(self):
        self._called("idle_cb")

    def quit_cb(self):
        self._called("quit_cb")

    def install_thread_hooks_cb(self, on):
        threading.settrace(on and core.bootstrap_new_thread or None)
        self._called("install_thread_hooks_cb")

    def import_cb(self, *arguments):
        # What it raises would stay pending beside the import's result.
        self.importing += 1
        try:
            self._robustly(self._called, "import_cb")
        finally:
            self.importing -= 1

    def policy_cb(self, ident):
        self._called("policy_cb")
        return self.answer("policy", [0, 1, 1, 1, 2])

    class _Stream(object):
        def __init__(self, world):
            self.world = world

        def write(self, text):
            if self.world.rng.random() < 0.05:
                self.world._called("stream")

        def flush(self):
            return None

    @property
    def stream(self):
        return World._Stream(self)

    # What values do when they are looked at.

    def act(self):
        if self.muted or self.depth >= DEPTH or self.budget <= 0:
            return
        self.depth += 1
        self.budget -= 1
        try:
            self._act()
        finally:
            self.depth -= 1

    def _act(self):
        choice = self.rng.randint(0, 22)
        if choice == 0:
            core.reset()
        elif choice == 1:
            core.init(*self.init_arguments)
        elif choice == 2:
            core.start_trace()
        elif choice == 3:
            core.stop_trace()
        elif choice == 4:
            core.clear_all_breaks()
        elif choice == 5:
            core.register_sub_language_hook(self.values.hook())
        elif choice == 6:
            core.set_exc_catch_info_list([])
        elif choice == 7:
            core.set_always_stop_excepts((KeyError,))
            core.set_never_stop_excepts(())
            core.set_ignored_exception_handlers({})
        elif choice == 8:
            core.clear_exception_ignores()
        elif choice == 9:
            core.thread_exiting()
        elif choice == 10:
            gc.collect()
        elif choice == 11:
            time.sleep(0)
        elif choice == 12:
            sys.settrace(self.rng.choice([None, core.trace_dispatch, core.bootstrap_new_thread]))
        elif choice == 13:
            # Within its page: nothing backs what is added to such a map beyond that.
            self.files.mapped.resize(self.rng.choice([16, 64, 4000]))
        elif choice in (14, 15, 16):
            self.empty_containers()
        elif choice == 17:
            raise self.rng.choice([KeyError, ValueError, RuntimeError, KeyboardInterrupt])("act")
        elif self.nested < DEPTH:
            self.nested += 1
            try:
                self.step("act")
            finally:
                self.nested -= 1

    def empty_containers(self):
        for each in self.values.containers:
            if isinstance(each, list):
                if self.rng.random() < 0.7:
                    list.__delslice__(each, 0, 1 << 30)
                else:
                    list.append(each, None)
            elif self.rng.random() < 0.7:
                dict.clear(each)
            else:
                dict.__setitem__(each, self.rng.randint(0, 1000), None)

    def answer(self, name, good):
        if self.muted:
            return good[0] if good else None
        self.act()
        chance = self.rng.random()
        if chance < 0.1:
            raise KeyError(name)
        if good and chance < 0.8:
            return self.rng.choice(good)
        return self.values.any(2)

    # One call.

    def step(self, site):
        if self.count >= self.limit:
            return
        self.count += 1
        # A step is the same whatever became of those before it.
        if site != "act":
            self.rng = self.values.rng = fuzzing.dice(self.seed, self.count)
            self.budget = 6
        if self.collecting:
            self.values.cyclic()
            self.values.containers.pop()
        name = self.rng.choice(FUNCTIONS)
        if self.importing and name in RAISING:
            return
        arguments = self.arguments(name)
        keywords = {}
        if self.rng.random() < 0.02:
            keywords = {self.rng.choice(["name", "x", "level", "fromlist"]): self.values.any()}
        os.write(self.notes, "seed %d step %d %s: %s(%s)\n" % (
            self.seed, self.count, site, name, ", ".join([describe(each) for each in arguments])))
        self.call(name, arguments, keywords)

    def call(self, name, arguments, keywords):
        try:
            getattr(core, name)(*arguments, **keywords)
        except SystemError, error:
            if "error return" in str(error) or "NULL result" in str(error):
                self.fault("%s: %s" % (name, error))
        except Exception:
            pass
        if name == "set_import_cb":
            # It leaves its errors pending.
            core.set_import_cb(self.callbacks["import_cb"])

    def arguments(self, name):
        if name == "init":
            return self.arguments_of_init()
        if name == "WaitForInput":
            return self.arguments_of_waiting()
        if self.rng.random() < 0.1:
            return [self.values.any() for _ in range(self.rng.randint(0, 7))]
        made = [self.values.any() if self.rng.random() < 0.25 else self.good(letter)
                for letter in TEMPLATES.get(name, "")]
        if self.rng.random() < 0.05:
            made.append(self.values.any())
        if made and self.rng.random() < 0.05:
            made.pop()
        return made

    def arguments_of_init(self):
        made = list(self.init_arguments)
        for _ in range(self.rng.randint(0, 3)):
            at = self.rng.randint(0, 11)
            value = self.values.any()
            # Another one than before would be kept for good, and what would be raised in import_cb
            # would stay pending.
            if at in (0, 1, 10) or at != 8 and (
                    self.wild or not callable(value) and not isinstance(value, dict)):
                made[at] = value
        if self.rng.random() < 0.05:
            made.pop()
        return made

    def arguments_of_waiting(self):
        made = [self.files.waited_for(self.rng), self.files.sockets(self.rng, self.values.any)]
        if self.rng.random() < 0.2:
            made[1] = self.values.any()
        if self.rng.random() < 0.1:
            made.pop()
        self.values.containers.extend([each for each in made[1:] if isinstance(each, list)])
        return made

    def good(self, letter):
        rng, values = self.rng, self.values
        return {
            "i": lambda: rng.choice([0, 1, -1, 2, 1 << 20, (1 << 31) - 1, -(1 << 31)]),
            "n": values.number, "m": lambda: rng.randint(-1, 6),
            "l": lambda: rng.randint(0, 45), "s": lambda: rng.choice([0, 0, 1, 2, -1]),
            "f": lambda: rng.choice(self.places), "t": values.text, "o": values.any,
            "c": lambda: rng.choice(CONDITIONS), "e": lambda: rng.choice(EVENTS),
            "T": values.tstate, "F": values.frame, "E": values.kinds_of_exceptions,
            "D": values.handlers, "L": values.catch_list, "M": values.module, "H": values.hook,
            "X": values.exception, "B": values.buffer, "U": values.file,
            "P": lambda: rng.choice([None, self.callbacks["policy_cb"], values.any()]),
            "I": lambda: rng.choice([None, self.callbacks["import_cb"], values.any()]),
            "u": lambda: rng.choice(["string", "sys", "os.path", "no_such_module", "", "threading",
                                     u"string", "os.", ".", "a.b.c", values.any()]),
        }[letter]()


def describe(value):
    """Looks at nothing that acts."""
    if type(value) in (int, long, float, str, unicode, bool, type(None)):
        text = repr(value)
        return text if len(text) < 50 else text[:45] + "...%d" % len(value)
    return "<%s>" % type(value).__name__


def references():
    gc.collect()
    return sys.gettotalrefcount()


def leaks(world, seed, limit):
    """Whether each round of a seed leaves references behind, however often it is run."""
    def growth(times):
        before = references()
        for _ in range(times):
            world.run(seed, limit)
            now = references()
            if now <= before:
                return False
            before = now
        return True
    return growth(REPEATS) and growth(PROOF) and growth(PROOF)


def run_rounds(first, last, limit, notes):
    world = hostile.world = World(notes)
    limit = STEPS if limit is None else limit
    # Before anything is initialised.
    world.run(first, min(limit, 8))
    for seed in range(first, last + 1):
        world.run(seed, limit)
        if hasattr(sys, "gettotalrefcount") and not world.wild and leaks(world, seed, limit):
            world.fault("references grow")


if __name__ == "__main__":
    sys.exit(fuzzing.Fuzzer("tests/fuzz/entry_points.py", run_rounds).main(
        fuzzing.options(__doc__.splitlines()[0])))
