"""Templates of engines as clients see them, on stand-ins."""

import os

import dap_session
from page_template_session import STAND_INS

DJANGO = '''\
import django
from django.conf import settings
settings.configure(TEMPLATE_DEBUG=True, TEMPLATE_DIRS=[%(folder)r], INSTALLED_APPS=[],
                   TEMPLATES=[{'BACKEND': 'django.template.backends.django.DjangoTemplates',
                               'DIRS': [%(folder)r], 'OPTIONS': {'debug': True}}])
getattr(django, 'setup', lambda: None)()
from django.template import Context, loader
def view(**given):
    template = loader.get_template('page.html')
    return getattr(template, 'template', template).render(Context(given))
'''
MAKO = '''\
from mako.lookup import TemplateLookup
lookup = TemplateLookup(directories=[%(folder)r])
def view(**given):
    return lookup.get_template('page.html').render(**given)
'''
CHAMELEON = '''\
from chameleon import PageTemplateFile
template = PageTemplateFile(%(folder)r + '/page.html')
def view(**given):
    return template(**given)
'''
ZOPE = '''\
from zope.pagetemplate.pagetemplatefile import PageTemplateFile
class Page(PageTemplateFile):
    def pt_getContext(self, args=(), options={}, **ignored):
        return dict(PageTemplateFile.pt_getContext(self, args, options), **options)
template = Page(%(folder)r + '/page.html')
def view(**given):
    return template(**given)
'''
VIEW = 'print view(items=[3, 5], title="T")  # here\n'
# By stand-ins: the program, its template, and a condition in the language that is true of 5.
ENGINES = {
    'django_1_4': (DJANGO, '{% for item in items %}\n<b>\n{{ item }}\n{{ title }}\n{% endfor %}\n',
                   'item == 5'),
    'django_1_11': (DJANGO, '{% for item in items %}\n<b>\n{{ item }}\n{{ title }}\n{% endfor %}\n',
                    'item > 3 and title'),
    'mako_0_9': (MAKO, '% for item in items:\n<b>\n${item}\n${title}\n% endfor\n', 'item > 3'),
    'mako_1': (MAKO, '% for item in items:\n<b>\n${item}\n${title}\n% endfor\n', 'item > 3'),
    'chameleon_2': (CHAMELEON, '<p tal:repeat="item items">\n<b>\n${item}\n${title}\n</b></p>\n',
                    'python: item > 3'),
    'chameleon_3': (CHAMELEON, '<p tal:repeat="item items">\n<b>\n${item}\n${title}\n</b></p>\n',
                    'python: item > 3'),
    'zope_tal': (ZOPE, '<p tal:repeat="item items">\n\n<b tal:content="item">x</b>\n'
                 '<b tal:content="title">x</b></p>\n', 'python: item > 3'),
}


class EnginesTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        self.before = os.environ.get('PYTHONPATH', '')

    def tearDown(self):
        os.environ['PYTHONPATH'] = self.before
        dap_session.TestCase.tearDown(self)

    def check(self, name):
        os.environ['PYTHONPATH'] = os.pathsep.join([os.path.join(STAND_INS, name), self.before])
        text, page, condition = ENGINES[name]
        page = self.script(page, 'page.html')
        program = self.serve(text % {'folder': self.folder} + VIEW, '--wait')
        client = self.connect(program)
        client.begin({})
        breakpoints = client.ask('setBreakpoints', source={'path': page}, breakpoints=[
            {'line': 3, 'condition': condition}, {'line': 3, 'logMessage': 'it is {item}'}])
        self.assertEqual([one['verified'] for one in breakpoints['breakpoints']], [True, True])
        client.ask('configurationDone')
        self.assertEqual([client.event('output')['output'] for _ in range(2)],
                         ['it is 3\n', 'it is 5\n'])
        self.assert_in('breakpoint', client.stopped())
        self.assertEqual((client.top()['line'], client.top()['source']['path']), (3, page))
        names = [shown['name'] for shown in client.variables(client.scope())]
        self.assertTrue('item' in names and 'title' in names, names)
        client.ask('setVariable', variablesReference=client.scope(), name='title', value='"new"')
        client.go('next')
        client.stopped()
        self.assertEqual(client.top()['line'], 4)
        self.assertEqual(client.evaluate('title'), "'new'")
        client.ask('disconnect')
        self.assert_in('new', program.ended()[0])

    def test_django_1_4(self):
        self.check('django_1_4')

    def test_django_1_11(self):
        self.check('django_1_11')

    def test_mako_0_9(self):
        self.check('mako_0_9')

    def test_mako_1(self):
        self.check('mako_1')

    def test_chameleon_2(self):
        self.check('chameleon_2')

    def test_chameleon_3(self):
        self.check('chameleon_3')

    def test_zope_tal(self):
        self.check('zope_tal')
