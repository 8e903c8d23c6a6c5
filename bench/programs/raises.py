"""Exceptions that are raised in a called function and caught by its caller."""

TIMES = 10000


def run(times):
    for number in xrange(times):
        try:
            fail(number)
        except ValueError:
            pass


def fail(number):
    raise ValueError(number)


def quiet():
    return 0


hot = fail
