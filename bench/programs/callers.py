"""A function that is called again and again, and leaves its work to others.

With a breakpoint in it that never stops nothing can stop in those either.
"""

TIMES = 800


def run(times):
    for number in xrange(times):
        pay(number)


def pay(number):
    total = number
    for part in xrange(3):
        total += share(number, part)
    return total


def share(number, part):
    low = number & 7
    high = number >> 3
    for step in xrange(4):
        low += step
        high -= part
    return low + high


def quiet():
    return 0


hot = pay
