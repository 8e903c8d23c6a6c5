"""What is debugged while entry points are called. Its lines are counted: see entry_points.py."""


def inner(n):
    total = 0
    for i in range(n):
        total += i
    return total


def risky(n):
    if n % 2:
        raise KeyError(n)
    return inner(n)


def count(n):
    for i in range(n):
        yield i


class Thing(object):
    def __init__(self):
        self.x = 1

    def method(self):
        return self.x


def work(n):
    thing = Thing()
    try:
        risky(n)
    except KeyError, error:
        thing.error = str(error)
    finally:
        thing.method()
    for i in count(2):
        thing.x += i
    import string
    return thing.x + len(string.digits)


results = [work(n) for n in (3, 2)]
