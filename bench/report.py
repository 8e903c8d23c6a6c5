"""The figures as a table for people and as JSON for programs."""

import json
import platform
import sys

from bench import variants

NAMES = [variant.__name__ for variant in variants.ALL]
WIDTH = max(len(name) for name in NAMES) + 2


def host():
    flavour = "release"
    if hasattr(sys, "gettotalrefcount"):
        flavour = "debug"
    return {"version": platform.python_version(), "flavour": flavour,
            "platform": platform.platform()}


def row(first, second, others):
    return "%-10s%9s" % (first, second) + "".join(other.rjust(WIDTH) for other in others)


def heading(rounds):
    about = host()
    return "CPython %s %s, median of %d rounds; the time of %s is 1\n\n%s" % (
        about["version"], about["flavour"], rounds, variants.YARDSTICK.__name__,
        row("program", "events", NAMES))


def figures(program, result):
    return row(program, str(sum(result["events"].values())),
               ["%.2f" % result["variants"][name]["ratio"] for name in NAMES])


def verdict(target):
    word = "missed"
    if target["met"]:
        word = "met"
    return "target %s: %s under %s takes %.2f times as long as under %s, at most %.2f" % (
        word, target["program"], target["variant"], target["ratio"], target["against"],
        target["limit"])


def write_json(path, rounds, results, targets):
    output = open(path, "w")
    json.dump({"host": host(), "rounds": rounds, "yardstick": variants.YARDSTICK.__name__,
               "programs": results, "targets": targets}, output, indent=2, sort_keys=True)
    output.write("\n")
    output.close()
