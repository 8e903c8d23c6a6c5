"""One part of a value or a scope."""

from __future__ import absolute_import

from sorrel.common.records import record

# name: how it is called; None when it is called by its key, which is a value itself. expression:
# how it is written where {0} is the whole; None when it cannot be written. assign: gives it another
# value; None when it cannot have one. read: its value is still to be asked for, which this does and
# which may run code of the program; else None. origin: one of those below, or None. fixed_by: the
# class of what it is a part of, where that does not let it have another value; else None.
Child = record('Child', 'name key value expression assign read origin fixed_by', None, None, None)

# Where a part comes from that is not its whole's own: what the server adds, and a value's class.
LENT, OF_CLASS = 'lent', 'of class'


def named(name, value, expression=None, assign=None, **more):
    return Child(name, None, value, expression, assign, **more)


def is_name(text):
    return text.replace('_', 'a').isalnum() and not text[0].isdigit()
