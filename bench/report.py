"""The figures as a table for people and as JSON for programs."""

import json
import platform
import sys

from bench import programs, variants


def host():
    flavour = "release"
    if hasattr(sys, "gettotalrefcount"):
        flavour = "debug"
    return {"version": platform.python_version(), "flavour": flavour,
            "platform": platform.platform()}


def heading(rounds):
    about = host()
    return "CPython %s %s, medians of %d rounds" % (about["version"], about["flavour"], rounds)


def row(title, cells):
    return "%-28s" % title + "".join("%10s" % cell for cell in cells)


def table(results):
    """Both, one below the other: beside the yardstick and beside the program untraced."""
    names = [programs.name(program) for program in programs.ALL
             if programs.name(program) in results]
    rows = _ratios(results, names, variants.YARDSTICK, "ratio")
    rows += [""] + _ratios(results, names, variants.untraced, "untraced_ratio")
    rows.append(row("(events traced)", [sum(results[name]["events"].values())
                                        for name in names]))
    return "\n".join(rows)


def _ratios(results, names, against, key):
    rows = [row("%s is 1" % against.__name__, names)]
    for variant in [function.__name__ for function in variants.ALL]:
        rows.append(row(variant, ["%.2f" % results[name]["variants"][variant][key]
                                  for name in names]))
    return rows


def verdict(target):
    word = "missed"
    if target["met"]:
        word = "met"
    return "%s: %s, %s against %s: %.2f, at most %.2f" % (
        word, target["program"], target["variant"], target["against"], target["ratio"],
        target["limit"])


def write_json(path, rounds, results, targets):
    output = open(path, "w")
    json.dump({"host": host(), "rounds": rounds, "yardstick": variants.YARDSTICK.__name__,
               "programs": results, "targets": targets}, output, indent=2, sort_keys=True)
    output.write("\n")
    output.close()
