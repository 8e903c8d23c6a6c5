"""A stack of which no more is made than is looked at."""


class LazyStack(object):

    def __init__(self, entries, most):
        """entries: an iterator over them. most: how many there can be."""
        self._entries = entries
        self._most = most
        self._made = []

    def page(self, start, count):
        """Some of the entries; count: 0 for all from start on."""
        while self._most is not None and not (count and len(self._made) >= start + count):
            try:
                self._made.append(next(self._entries))
            except StopIteration:
                self._most = None
        return self._made[start:start + count] if count else self._made[start:]

    def most(self):
        """How many there are, or can be as far as is known."""
        return len(self._made) if self._most is None else self._most
