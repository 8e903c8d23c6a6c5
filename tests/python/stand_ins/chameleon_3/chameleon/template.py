import os
import sys

from chameleon import compiler
from chameleon.loader import MemoryLoader, ModuleLoader
from chameleon.utils import Scope


class BaseTemplate(object):

    filename = '<string>'
    loader = MemoryLoader()
    builtins = {}
    extra_builtins = {}
    engine = None
    default_expression = 'python'
    expression_types = dict.fromkeys(['python', 'string', 'structure', 'load'])

    def __init__(self, body=None, **settings):
        self.__dict__.update(settings)
        if body is not None:
            self.cook(body)

    def __call__(self, **values):
        return self.render(**values)

    def cook(self, body):
        builtins = sorted(self.builtins.items())
        source = compiler.code(body, self.filename, [name for name, _ in builtins])
        module = self.loader.build(source, self._module_name())
        functions = module['initialize'](*[value for _, value in builtins])
        for name, function in functions.items():
            setattr(self, '_' + name, function)

    def cook_check(self):
        pass

    def _module_name(self):
        return os.path.basename(self.filename).replace('.', '_').strip('<>') + '_of_stand_in.py'

    def render(self, **values):
        self.cook_check()
        stream, rcontext = [], {}
        try:
            self._render(stream, Scope(values), rcontext)
        except:
            kind, error, traceback = sys.exc_info()
            if '__error__' in rcontext:
                raise kind, kind(*error.args), traceback
            raise
        return u''.join([unicode(text) for text in stream])


class BaseTemplateFile(BaseTemplate):

    auto_reload = False

    def __init__(self, filename, auto_reload=False, **settings):
        BaseTemplate.__init__(self, **settings)
        self.filename = os.path.abspath(filename)
        self.auto_reload = auto_reload
        self._read = None

    def cook_check(self):
        if self._read is None or self.auto_reload:
            time = os.path.getmtime(self.filename)
            if time != self._read:
                self._read = time
                self.cook(open(self.filename).read())
