"""The hook for Jinja2, 2.6 to 2.11: templates instead of the Python that they are made into.

Functions of templates come with each template that is loaded, which the engine gets its namespace
for in one place: the core asks about that as about a template's own code, and is told.
"""

from __future__ import absolute_import

import gc
import sys

from sorrel.languages import generated_code, jinja_code, jinja_variables

# What renders templates.
_RENDERING = ('render', 'generate', 'stream', 'make_module', '_get_default_module', 'from_code')


def hook(engine):
    """The hook; None where the engine is not all there yet."""
    try:
        template, macro = engine.Template, engine.runtime.Macro
        makes, runs = [_code(method) for method in template._from_namespace, template.from_code]
        escaping = sys.modules[engine.Markup.__module__].__file__
    except AttributeError:
        return None
    methods = [getattr(template, name, None) for name in _RENDERING] + [macro.__call__]
    rendering = [makes] + [_code(method) for method in methods if hasattr(method, 'im_func')]
    return Hook(template, makes, runs, rendering, [makes.co_filename, escaping])


class Hook(generated_code.Hook):

    def __init__(self, template, makes, runs, rendering, files):
        """template: the engine's class of them. makes: the code that makes one of a namespace.
        runs: the one that has the module of a template fill that.
        """
        generated_code.Hook.__init__(self, rendering, files, [makes, runs])
        self._template = template
        self._makes = makes

    def code_of(self, namespace):
        return jinja_code.functions(namespace) if jinja_code.is_namespace(namespace) else []

    def namespaces(self):
        found = []
        left = [self._template]
        while left:
            template = left.pop()
            left += template.__subclasses__()
            found += [getattr(known.root_render_func, 'func_globals', {})
                      for known in gc.get_referrers(template) if type(known) is template]
        return found

    def lines_of(self, code, namespace):
        return jinja_code.Lines(code, namespace['debug_info'])

    def path_of(self, frame):
        return jinja_code.path(frame.f_code)

    def called(self, frame):
        if frame.f_code is self._makes:
            self.learn(frame.f_locals['namespace'])
            self.tell_core()
        else:
            code = frame.f_locals['code']
            self.hide_module(code, jinja_code.path(code))

    def is_passing_on(self, frame):
        return jinja_code.is_passing_text_on(frame)

    def is_suspended(self, frame):
        return jinja_code.is_suspended(frame)

    def _Variables(self, frame):
        return jinja_variables.of_frame(frame)

    def _SetVariable(self, frame, name, value):
        jinja_variables.assign(frame, name, value)

    def _Eval(self, text, frame):
        return jinja_variables.evaluate(text, frame)


def _code(method):
    return method.im_func.func_code
