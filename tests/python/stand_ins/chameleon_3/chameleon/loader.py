import os


class MemoryLoader(object):

    def build(self, source, filename):
        code = compile(source, filename, 'exec')
        module = {}
        exec code in module
        return module


class ModuleLoader(object):

    def _load(self, base, filename):
        raise NotImplementedError


class TemplateLoader(object):

    def __init__(self, kind, folder):
        self.kind, self.folder, self.known = kind, folder, {}

    def load(self, name):
        path = os.path.join(self.folder, name.strip())
        if path not in self.known:
            self.known[path] = self.kind(path)
        return self.known[path]
