"""The hook for Django's templates, 1.3 to 1.11.

They are made into no code, but into trees of nodes that render themselves. A frame that has one do
so stands for the line where that begins.
"""

from __future__ import absolute_import

import os
import sys

import tmorvik26_vs2012_x64 as core

from sorrel.common.originals import thread
from sorrel.languages import django_nodes, django_variables, sublanguages

# Events, as the core numbers them.
EXCEPTION, CALL, LINE, RETURN = -1, 0, 1, 2

_FOLDERS = ('template', 'templatetags', 'utils')

_ident = thread.get_ident


def hook(engine):
    """engine: django.template.library; before 1.9, .debug, without which nodes have no positions.

    None where what else there is has not been imported.
    """
    base = sys.modules.get('django.template.base')
    tags = sys.modules.get('django.template.loader_tags')
    if not hasattr(base, 'Node') or not hasattr(base, 'Template') \
            or not hasattr(tags, 'BlockNode') or not hasattr(tags, 'ExtendsNode'):
        return None
    if hasattr(base.Node, 'render_annotated'):
        return Hook(base, tags, [base.Node.render_annotated])
    loop = getattr(sys.modules.get('django.template.defaulttags'), 'ForNode', None)
    nodes = getattr(engine, 'DebugNodeList', None)
    if loop is None or nodes is None:
        return None
    return Hook(base, tags, [nodes.render_node], loop.render)


class Hook(sublanguages.EngineHook):

    def __init__(self, base, tags, placers, loop=None):
        """placers: methods that are called for each node, to render it. loop: one that has nodes
        rendered without these.
        """
        sublanguages.EngineHook.__init__(self)
        self._call = _code(base.Template.render)
        # What renders a list of nodes that a step over a line of another one does not lead into.
        self._roots = [_code(base.Template._render), _code(tags.BlockNode.render)]
        if loop is not None:
            self._roots += django_nodes.of_inclusion(_code(base.Library.inclusion_tag))
        self._placers = [_code(method) for method in placers]
        self._loop = _code(loop) if loop is not None else None
        if loop is not None:
            self._begin_nodes, self._loop_lines = django_nodes.rendering_lines(self._loop)
        self._keys = self._roots + self._placers + [self._loop] * (loop is not None)
        self._base = base
        self._places = django_nodes.Places(base, tags.ExtendsNode, self._roots[0])
        engine = os.path.dirname(os.path.dirname(os.path.abspath(base.__file__)))
        folders = [os.path.join(engine, name) for name in _FOLDERS]
        folders += [os.path.dirname(os.path.abspath(code.co_filename)) for code in self._keys]
        self._folders = [folder + os.sep for folder in sorted(set(folders))]
        # By threads, whether a line began where the last question was.
        self._begins = {}
        # By threads and the id() of roots: the line that was begun last, the id() of its nodes.
        self._begun = {}
        # Threads whose step out, which is none, leads only out of where a node is rendered.
        self._going_on = set()

    # What only sorrel asks.

    def is_template(self, frame):
        return frame.f_code in self._keys

    def is_place(self, frame):
        return self._node(frame) is not None

    def begin(self):
        self._begun.clear()

    def end_in(self, frame):
        return self._root(frame)

    def raising_again(self):
        return self._placers

    # What the core asks.

    def _GetMarkerFrames(self):
        return [self._call]

    def _GetModulePaths(self):
        return self._folders

    def _GetSubLanguageFrames(self):
        return self._keys

    def _StopHere(self, frame, event, kind):
        """Stepping asks first; then breakpoints do, as if there were a step, unless that was to
        stop. The first question about an exception is no other than that of a step.
        """
        if frame.f_code not in self._roots:  # Their returns count in any case.
            self.say_where(frame.f_code, self._lines_to_ask_at)
        elif event == CALL and frame.f_code is self._roots[0]:
            self._begin(frame)
        ident = _ident()
        number = self.count_question(ident)
        if event == RETURN:
            if number == 1:
                self._return(ident, frame, kind)
            return False
        node = self._node(frame)
        if node is None:
            return False
        if event == EXCEPTION:
            return number > 1 and kind == sublanguages.RUNNING
        if not self._begins_node(frame, event):
            return False
        if number == 1:
            begins = self._begins[ident] = self._begins_line(ident, frame, node)
            return begins and self.ends_step(ident, frame, kind)
        return number == 2 and self._begins.get(ident, False)

    def _lines_to_ask_at(self, code):
        return self._begin_nodes if code is self._loop else (code.co_firstlineno,)

    def _begin(self, frame):
        path, lines = self._places.of_template(frame.f_locals['self'], frame)
        if sublanguages.lines_with_breakpoints(path):
            sublanguages.begun(path, lines)

    def _begins_node(self, frame, event):
        if frame.f_code is self._loop:
            return event == LINE and frame.f_lineno in self._begin_nodes
        return event == CALL

    def _begins_line(self, ident, frame, node):
        """A node that comes again in a line is in another turn of a loop."""
        place = self._places.of(node, frame)
        if place is None:
            return False
        root = ident, id(self._root(frame))
        last, nodes = self._begun.get(root, (None, ()))
        begins = place != last or id(node) in nodes
        self._begun[root] = place, (id(node),) if begins else nodes + (id(node),)
        return begins

    def _return(self, ident, frame, kind):
        """A step over a line goes on in what renders its list, and further out when that ends."""
        is_root = frame.f_code in self._roots
        if is_root:
            self._begun.pop((ident, id(frame)), None)
        if kind in (sublanguages.RUNNING, sublanguages.STEP_INTO) \
                or not self.is_end(ident, self._root(frame)):
            return
        if not is_root:
            self._going_on.add(ident)
        try:
            core.step_out()
        finally:
            self._going_on.discard(ident)

    def _GetStepOutFrame(self, frame):
        """The template, or the block, that has asked for this one; or what of the program has."""
        root = self._root(frame)
        if _ident() in self._going_on or root is None:
            return root
        return self.end_outside(_ident(), root.f_back, self.is_of_engine)

    # Where a frame is.

    def _TranslateFrame(self, frame, for_exception):
        node = self._node(frame)
        place = node is not None and self._places.of(node, frame, True)
        if not place:
            raise LookupError('no line of a template')
        return place

    def _node(self, frame):
        """What a frame has to render at its line, None for nothing."""
        if frame.f_code in self._placers:
            given = frame.f_locals
            return given['node'] if 'node' in given else given['self']
        if frame.f_code is self._loop and frame.f_lineno in self._loop_lines:
            return frame.f_locals.get('node')
        return None

    def _root(self, frame):
        while frame is not None and frame.f_code not in self._roots:
            frame = frame.f_back
        return frame

    # Values.

    def _Variables(self, frame):
        return django_variables.of_context(frame.f_locals['context'])

    def _SetVariable(self, frame, name, value):
        django_variables.assign(frame.f_locals['context'], name, value)

    def _Eval(self, text, frame):
        return django_variables.evaluate(text, frame.f_locals['context'], self._base)


def _code(method):
    return method.im_func.func_code
