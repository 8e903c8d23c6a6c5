"""How much the core may cost."""

# (program, variant, the variant it is compared with, the highest ratio of their times)
TARGETS = [
    ("lines", "core", "counting", 1.5),
    ("calls", "core", "counting", 1.6),
    ("lines", "core_breakpoints_elsewhere", "counting", 1.5),
    ("lines", "core_breakpoints_nearby", "counting", 1.5),
    ("lines", "core_condition", "bdb_condition", 0.2),
    ("raises", "core_unhandled", "counting", 1.6),
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
