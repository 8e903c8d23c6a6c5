"""Tuples whose places have names.

They are like those of collections.namedtuple(), which compiles a text for each kind: a program that
starts many others would feel the sum of that.
"""

from __future__ import absolute_import

from operator import itemgetter


class _Record(tuple):

    __slots__ = ()
    _fields, _defaults = (), {}

    def __new__(cls, *values, **named):
        if named or len(values) != len(cls._fields):
            values = _completed(cls, values, named)
        return tuple.__new__(cls, values)

    def __getnewargs__(self):
        return tuple(self)

    def __repr__(self):
        return '%s(%s)' % (type(self).__name__, ', '.join(
            ['%s=%r' % named for named in zip(self._fields, self)]))

    def _replace(self, **named):
        """The same with other values in these places."""
        return type(self)(
            *[named.pop(name, value) for name, value in zip(self._fields, self)], **named)


def _completed(cls, values, named):
    try:
        values += tuple([named.pop(name) if name in named else cls._defaults[name]
                         for name in cls._fields[len(values):]])
    except KeyError:
        pass
    if named or len(values) != len(cls._fields):
        raise TypeError('%s has these values: %s' % (cls.__name__, ', '.join(cls._fields)))
    return values


def record(name, fields, *defaults):
    """A new class. fields: the names of its places, with blanks between them.

    defaults: what is in the last ones where nothing else is said.
    """
    names = tuple(fields.split())
    members = dict((field, property(itemgetter(place))) for place, field in enumerate(names))
    return type(name, (_Record,), dict(
        members, __slots__=(), _fields=names,
        _defaults=dict(zip(names[len(names) - len(defaults):], defaults))))
