"""Measures what the core costs a running program.  Runs under morvik-python, best on a release
host: ./morvik bench."""

import gc
import optparse
import os
import re
import subprocess
import sys

from bench import measure, programs, report, targets, variants

ROUNDS = 25
QUICK_ROUNDS = 3
QUICK_DIVISOR = 20


def read_options():
    known = [programs.name(program) for program in programs.ALL]
    parser = optparse.OptionParser(
        prog="morvik bench", usage="%prog [options] [PROGRAM...]",
        description="Programs: %s. Without one, all." % ", ".join(known))
    parser.add_option("--rounds", type="int", metavar="N",
                      help="how often each is timed (%d)" % ROUNDS)
    parser.add_option("--quick", action="store_true",
                      help="only show that everything runs: small programs, few rounds")
    parser.add_option("--json", metavar="FILE", help="also write the figures to FILE")
    parser.add_option("--check", action="store_true", help="fail when a target is missed")
    options, wanted = parser.parse_args()
    for name in wanted:
        if name not in known:
            parser.error("no such program: %s" % name)
    if options.rounds is None:
        options.rounds = options.quick and QUICK_ROUNDS or ROUNDS
    if options.rounds < 1:
        parser.error("at least one round is needed")
    return options, wanted or known


def stay_on_one_processor():
    """This process and those that it starts: processors may run at different clock rates."""
    try:
        allowed = re.search(r"Cpus_allowed_list:\s*(\d+)", open("/proc/self/status").read())
        subprocess.call(["taskset", "-cp", allowed.group(1), str(os.getpid())],
                        stdout=open(os.devnull, "w"), stderr=subprocess.STDOUT)
    except EnvironmentError:
        pass  # Another platform, or a small one: figures of "launched" vary more there.


def main():
    options, wanted = read_options()
    stay_on_one_processor()
    gc.disable()
    print(report.heading(options.rounds))
    sys.stdout.flush()
    results = {}
    for program in programs.ALL:
        name = programs.name(program)
        if name in wanted:
            times = program.TIMES
            if options.quick:
                times = max(1, times // QUICK_DIVISOR)
            results[name] = measure.measure(program, times, options.rounds)
    variants.close()
    verdicts = targets.judge(results)
    print("\n%s\n" % report.table(results))
    for target in verdicts:
        print(report.verdict(target))
    if options.json:
        report.write_json(options.json, options.rounds, results, verdicts)
    missed = [target for target in verdicts if not target["met"]]
    return options.check and len(missed) > 0


if __name__ == "__main__":
    sys.exit(main())
