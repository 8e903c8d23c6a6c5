import re
import types
import weakref

from mako import codegen, runtime


class Template(object):

    def __init__(self, text, filename=None, lookup=None):
        self.lookup = lookup
        name = re.sub(r'\W', '_', filename or 'memory:%x' % id(self))
        source = codegen.module(text, filename, name)
        self.module = types.ModuleType(name)
        exec compile(source, name, 'exec') in self.module.__dict__
        ModuleInfo(self.module, None, self, filename, source, text)

    def render(self, **data):
        return runtime._render(self, data)

    def render_unicode(self, **data):
        return runtime._render(self, data)

    def render_context(self, context):
        self.module.render_body(context)


class ModuleInfo(object):

    _modules = weakref.WeakValueDictionary()

    def __init__(self, module, module_filename, template, template_filename, module_source,
                 template_source):
        self.module = module
        self.module_filename = module_filename
        self.template_filename = template_filename
        self.module_source = module_source
        self.template_source = template_source
        self._modules[module.__name__] = template._mmarker = self

    @property
    def code(self):
        return self.module_source
