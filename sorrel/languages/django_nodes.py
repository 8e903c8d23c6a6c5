"""Where in their templates the nodes are that Django renders.

From 1.9 on a node has its token, which knows its line. Before, one has a source, the template and
offsets in that, where the template was compiled for debugging.
"""

from __future__ import absolute_import

import bisect
import dis
import opcode
import types

from sorrel.languages import sublanguages

_MAXIMUM = 256
# What the engine calls a template that is in no file.
_UNKNOWN = '<unknown source>'
_LOAD_FAST, _LOAD_ATTR = opcode.opmap['LOAD_FAST'], opcode.opmap['LOAD_ATTR']
_RAISE = opcode.opmap['RAISE_VARARGS']


class Places(object):

    def __init__(self, base, extends, rendering):
        """base: django.template.base. extends: the class of the tag of that name, of which only the
        blocks are rendered. rendering: code that renders a template.
        """
        self._base = base
        self._extends = extends
        self._rendering = rendering
        # By id() and what it is: of templates the offsets of their lines, the id() of their nodes, or
        # the places where something of them begins.
        self._known = {}

    def of(self, node, frame, for_any=False):
        """The (path, line) of a node that a frame has to render.

        None where that is not known, or for blank text if not for any node.
        """
        blank_lines = 0
        if isinstance(node, self._base.TextNode):
            text = node.s
            if not for_any and not text.strip():
                return None
            blank_lines = text[:len(text) - len(text.lstrip())].count('\n')
        if getattr(node, 'token', None) is not None:
            place = self._origin(node, frame), node.token.lineno
        elif getattr(node, 'source', None):
            origin, (start, _) = node.source
            starts = self._of(origin, _line_starts, 'lines')
            place = origin, bisect.bisect_right(starts, start)
        else:
            return None
        name = getattr(place[0], 'name', None)
        return (sublanguages.path_of_template(name if name != _UNKNOWN else None),
                place[1] + blank_lines)

    def of_template(self, template, frame):
        """The path of a template that a frame renders, and the lines of it at which threads can
        stop; None for the path if there are none.
        """
        places = self._of(template, lambda whole: self._all(whole, frame), 'places')
        return places[0][0] if places else None, [line for _, line in places]

    def _all(self, template, frame):
        places = [self.of(node, frame) for node in self._inside(template.nodelist)]
        places = [place for place in places if place is not None]
        # Tags of the program's may hold those of other templates.
        return sorted(set([place for place in places if place[0] == places[0][0]]))

    def _inside(self, what):
        """All nodes that are held by one, or by what one has."""
        found, left, seen = [], [what], set()
        for one in left:
            if id(one) in seen:
                continue
            seen.add(id(one))
            if isinstance(one, self._base.Node):
                found.append(one)
                left += [one.blocks] if isinstance(one, self._extends) \
                    else getattr(one, '__dict__', {}).values()
            elif isinstance(one, dict):
                left += one.values()
            elif isinstance(one, (list, tuple)):
                left += one
        return found

    def _origin(self, node, frame):
        """Up to 1.9 it is known only to the template, one of those that are being rendered."""
        if hasattr(node, 'origin'):
            return node.origin
        while frame is not None:
            if frame.f_code is self._rendering:
                template = frame.f_locals['self']
                if id(node) in self._of(template, _ids_of_nodes, 'nodes'):
                    return template.origin
            frame = frame.f_back
        return None

    def _of(self, what, made, name):
        known = self._known.get((id(what), name))
        if known is None:
            if len(self._known) >= _MAXIMUM:
                self._known.clear()
            # With what it is of, as long as the id() is to be its own.
            known = self._known[id(what), name] = what, made(what)
        return known[1]


def _line_starts(origin):
    found, text = [0], origin.reload()
    while True:
        end = text.find('\n', found[-1])
        if end < 0:
            return found
        found.append(end + 1)


def _ids_of_nodes(template):
    return set([id(node) for node in template.nodelist.get_nodes_by_type(object)])


def of_inclusion(code):
    """The code that renders the templates of inclusion tags, inside that which makes the tags."""
    found = []
    for inner in code.co_consts:
        if isinstance(inner, types.CodeType):
            if code.co_name == 'InclusionNode' and inner.co_name == 'render':
                found.append(inner)
            found.extend(of_inclusion(inner))
    return found


def rendering_lines(code):
    """Of a method that has nodes rendered, its variable `node`: the lines that do so, and all that
    it is at for one, as what comes up there may be caught to be raised again.
    """
    begins, lines, starts = set(), set(), dict(dis.findlinestarts(code))
    line = last = before = None
    at = 0
    while at < len(code.co_code):
        line = starts.get(at, line)
        operation, argument = ord(code.co_code[at]), None
        at += 1
        if operation >= opcode.HAVE_ARGUMENT:
            argument = ord(code.co_code[at]) + 256 * ord(code.co_code[at + 1])
            at += 2
        if operation == _LOAD_ATTR and code.co_names[argument] == 'render' and before == 'node':
            begins.add(line)
            last = line
        elif operation == _RAISE and last is not None:
            lines.update(range(last, line + 1))
        before = code.co_varnames[argument] if operation == _LOAD_FAST else None
    return begins, lines | begins
