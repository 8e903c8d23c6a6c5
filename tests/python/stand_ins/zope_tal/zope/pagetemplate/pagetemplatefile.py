import os

from zope.pagetemplate.compiling import Compiler
from zope.tal.talinterpreter import TALInterpreter
from zope.tales.tales import Context, Engine


class PageTemplateFile(object):

    def __init__(self, filename):
        self.filename = os.path.abspath(filename)
        self._read = None

    def _cook_check(self):
        time = os.path.getmtime(self.filename)
        if time != self._read:
            self._read = time
            made = Compiler(open(self.filename).read(), self.filename)
            self._program, self._macros = made.program, made.macros

    @property
    def macros(self):
        self._cook_check()
        return self._macros

    def pt_getContext(self, args=(), options=None, **ignored):
        return {'template': self, 'options': options}

    def __call__(self, *args, **options):
        self._cook_check()
        stream = []
        context = Context(Engine(), self.pt_getContext(args, options))
        TALInterpreter(self._program, self._macros, context, stream)()
        return u''.join(stream)
