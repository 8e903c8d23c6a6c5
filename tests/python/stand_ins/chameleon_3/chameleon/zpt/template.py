import os

from chameleon.loader import TemplateLoader
from chameleon.template import BaseTemplate, BaseTemplateFile


class PageTemplate(BaseTemplate):

    @property
    def builtins(self):
        return {'template': self, 'nothing': None, '__loader': None}

    def render(self, **values):
        for name in '__decode', '__convert', '__translate':
            values[name] = unicode
        return super(PageTemplate, self).render(**values)

    def include(self, *arguments):
        self.cook_check()
        self._render(*arguments)


class PageTemplateFile(PageTemplate, BaseTemplateFile):

    def __init__(self, filename, **settings):
        super(PageTemplateFile, self).__init__(filename, **settings)
        self._loader = TemplateLoader(type(self), os.path.dirname(self.filename))

    @property
    def builtins(self):
        return {'template': self, 'nothing': None, '__loader': self._loader.load}
