"""The hook for Mako, 0.9 to 1.1: templates instead of the Python modules that they are made into.

Each such module is noted by the engine in one place, with its source: the core asks about that as
about a template's own code.
"""

from __future__ import absolute_import

import os
import sys

from sorrel.languages import generated_code, mako_code, mako_variables

_RENDERING = ('render', 'render_unicode', 'render_context')


def hook(engine):
    """engine: mako.template; None where it is not all there yet."""
    template = getattr(engine, 'Template', None)
    known = getattr(engine, 'ModuleInfo', None)
    return Hook(template, known) if known is not None and template is not None else None


class Hook(generated_code.Hook):

    def __init__(self, template, known):
        """known: the class of what the engine notes of the modules."""
        methods = [getattr(template, name).im_func.func_code for name in _RENDERING]
        notes = known.__init__.im_func.func_code
        files = [notes.co_filename]
        escaping = sys.modules.get('markupsafe')
        if escaping is not None:
            files.append(escaping.__file__)
        # Noted before it is rendered, and in no method of the template's.
        generated_code.Hook.__init__(self, [notes] + methods, files, [notes])
        self._known = known
        # By the names of modules, their Source.
        self._sources = {}

    def code_of(self, namespace):
        if not mako_code.is_namespace(namespace):
            return []
        source = self._source(namespace)
        return source.functions(namespace) if source is not None else []

    def namespaces(self):
        return [vars(known.module) for known in self._known._modules.values()]

    def lines_of(self, code, namespace):
        return self._source(namespace).lines(code)

    def path_of(self, frame):
        name = frame.f_globals.get('_template_filename')
        if not name:
            return '<template>'
        if isinstance(name, unicode):
            name = name.encode(sys.getfilesystemencoding() or 'utf-8', 'replace')
        return os.path.abspath(name)

    def called(self, frame):
        given = frame.f_locals
        if given['module_source'] is not None:
            self._note(given['module'].__name__, given['module_source'])
        self.learn(vars(given['module']))
        self.tell_core()

    def _source(self, namespace):
        name = namespace.get('__name__')
        if name not in self._sources:
            known = self._known._modules.get(name)
            if known is not None:
                self._note(name, known.code)
            elif namespace.get('__file__'):
                # It is not noted yet: of a module in a file.
                self._note(name, open(namespace['__file__'].rstrip('co')).read())
        return self._sources.get(name)

    def _note(self, name, text):
        self._sources[name] = mako_code.Source(text)

    def _Variables(self, frame):
        return mako_variables.of_frame(frame)

    def _SetVariable(self, frame, name, value):
        mako_variables.assign(frame, name, value)

    def _Eval(self, text, frame):
        filters = sys.modules['mako.filters'].DEFAULT_ESCAPES
        return mako_variables.evaluate(text, frame, filters)
