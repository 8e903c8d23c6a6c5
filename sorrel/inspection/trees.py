"""The kinds of nodes in the trees that the interpreter parses texts to.

The module _ast, which has them, is not imported: another thread may hold the import lock, and wait
for the calling one.
"""

from __future__ import absolute_import

# As the module _ast has it.
ONLY_TREE = 0x400
# Has nodes of all kinds that are to be made.
_TEXT = 'def f(a):\n try: f(lambda: a)\n finally: ""\n'


class Kinds(object):
    """Attributes are the classes of nodes, by their names."""

    def __init__(self):
        for node in nodes(compile(_TEXT, '<kinds>', 'single', ONLY_TREE, True)):
            setattr(self, name_of(node), type(node))
        self.Expression = type(compile('a', '<kinds>', 'eval', ONLY_TREE, True))


def nodes(tree):
    """All there are in a tree or in a list of them, itself included."""
    found, left = [], [tree]
    while left:
        one = left.pop()
        if isinstance(one, list):
            left += one
        elif is_node(one):
            found.append(one)
            left += [getattr(one, name, None) for name in one._fields or ()]
    return found


def is_node(value):
    return hasattr(type(value), '_fields')


def name_of(node):
    return type(node).__name__
