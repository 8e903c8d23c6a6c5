"""How much the core may cost."""

# (program, variant, the variant it is compared with, the highest ratio of their times)
TARGETS = [
    ("lines", "core", "counting", 1.5),
    ("calls", "core", "counting", 1.6),
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
