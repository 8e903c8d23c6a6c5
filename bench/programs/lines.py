"""A loop of plain lines: arithmetic on local names, no calls."""

TIMES = 20000


def run(times):
    for number in xrange(times):
        low = number & 7
        high = number >> 3
        both = low + high
        total = both + number
        low = high
        high = both
        both = low - high
        total = total + both


def quiet():
    return 0


hot = run
