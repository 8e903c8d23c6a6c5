"""A loop of calls of built-in functions and methods."""

TIMES = 6000


def run(times):
    for number in xrange(times):
        text = str(number)
        size = len(text)
        parts = text.split("1")
        parts.append(text)
        joined = "-".join(parts)
        largest = max(size, len(joined))
        abs(largest)


def quiet():
    return 0


hot = run
