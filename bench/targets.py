"""How much the core may cost."""

# By programs: the highest ratio of the time while nothing can stop in them to that untraced.
_FREE = {"lines": 1.05, "pystone": 1.2, "pickling": 1.2, "builtins": 1.25, "calls": 1.4}
_FREE_VARIANTS = ("core", "core_policy", "core_breakpoints_elsewhere", "core_breakpoints_nearby",
                  "launched")

# (program, variant, the variant it is compared with, the highest ratio of their times)
TARGETS = [(program, variant, "untraced", _FREE[program])
           for program in sorted(_FREE) for variant in _FREE_VARIANTS] + [
    ("lines", "core_stepping_over", "untraced", 1.1),
    ("calls", "core_stepping_over", "untraced", 1.5),
    ("raises", "core_unhandled", "untraced", 1.8),
    ("raises", "launched", "untraced", 1.8),
    ("lines", "core_condition", "bdb_condition", 0.2),
    # Where there are events, what the core itself costs.
    ("lines", "core_always_traced", "counting", 1.5),
    ("calls", "core_always_traced", "counting", 1.6),
]


def judge(results):
    """The targets of the programs measured, as dictionaries, with the ratios reached."""
    verdicts = []
    for program, variant, against, limit in TARGETS:
        if program in results:
            variants = results[program]["variants"]
            ratio = variants[variant]["ratio"] / variants[against]["ratio"]
            verdicts.append({"program": program, "variant": variant, "against": against,
                             "limit": limit, "ratio": ratio, "met": ratio <= limit})
    return verdicts
