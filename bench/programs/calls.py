"""Recursive calls: each is a call event, one or two lines and a return."""

TIMES = 40


def run(times):
    for _ in xrange(times):
        fibonacci(14)


def fibonacci(number):
    if number < 2:
        return number
    return fibonacci(number - 1) + fibonacci(number - 2)


def quiet():
    return 0


hot = fibonacci
