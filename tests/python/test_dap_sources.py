"""Where clients find the text of what runs: in files of theirs, or by asking for it."""

import os
import py_compile

import dap_session

GENERATED = '''\
import linecache
text = 'def made(call):\\n    return call()\\n'
linecache.cache['<generated-3>'] = len(text), None, text.splitlines(True), '<generated-3>'
space = {}
exec compile(text, '<generated-3>', 'exec') in space
def stop():
    return 7  # here
space['made'](stop)
'''
DOCTEST = '''\
import doctest, sys
def stop():
    return 7  # here
def documented():
    """
    >>> stop()
    7
    """
doctest.testmod()
'''
LOADED = '''\
class Loader(object):
    def get_source(self, name):
        return 'def made(call):\\n    return call()\\n# of %s\\n' % name
space = {'__name__': 'made_up', '__file__': '<made up>', '__loader__': Loader()}
exec compile(Loader().get_source('made_up'), '<made up>', 'exec') in space
def stop():
    return 7  # here
space['made'](stop)
'''
LOST = """\
space = {}
exec '''def lost(call, mark=(1, u"x")):
    for one in mark:
        return call() + 5
''' in space
def stop():
    return 7  # here
space['lost'](stop)
"""
WITH_CACHE_OF_ITS_OWN = '''\
import linecache
asked = []
class Key(object):
    def __hash__(self):
        return hash('<generated-4>')
    def __eq__(self, other):
        asked.append('key')
        return False
class Line(str):
    def __str__(self):
        asked.append('line')
        return ''
linecache.cache = {Key(): 1, '<generated-4>': (3, None, [Line('x')], '')}
linecache.getlines = lambda *given: asked.append('lines')
space = {}
exec compile('def made(call):\\n    return call()\\n', '<generated-4>', 'exec') in space
def stop():
    del asked[:]
    return 7  # here
space['made'](stop)
print asked
'''


class TestCase(dap_session.TestCase):

    def at_mark(self, text, **arguments):
        self.program = self.serve(text, '--wait')
        self.client = self.attach(self.program, '# here', **arguments)
        self.client.stopped()

    def frames(self):
        return self.client.ask('stackTrace', threadId=self.client.thread)['stackFrames']

    def text_of(self, source):
        """The answer to the request for it, as clients ask."""
        return self.client.ask('source', source=source,
                               sourceReference=source['sourceReference'])


class SourceTest(TestCase):

    def assert_made_of(self, text, name):
        """The frame that has called has this text."""
        source = self.frames()[1]['source']
        self.assertEqual(source['name'], name)
        self.assertEqual(source.get('path'), None)
        self.assertEqual(self.text_of(source), {'content': text, 'mimeType': 'text/x-python'})
        # What it is called by does not change.
        self.assertEqual(self.frames()[1]['source'], source)

    # Code that is in no file.

    def test_lines_that_the_program_has_put_into_linecache(self):
        self.at_mark(GENERATED)
        self.assert_made_of('def made(call):\n    return call()\n', '<generated-3>')

    def test_examples_of_a_doctest(self):
        self.at_mark(DOCTEST)
        self.assert_made_of('stop()\n', '<doctest __main__.documented[0]>')

    def test_what_the_loader_of_a_module_with_a_made_up_name_knows(self):
        self.at_mark(LOADED)
        self.assert_made_of('def made(call):\n    return call()\n# of made_up\n', '<made up>')

    def test_the_text_of_the_command_line(self):
        adapter = self.opened(dap_session.Adapter())
        text = 'def run():\n    return 5\nrun()'
        adapter.launch(code=text, stopOnEntry=True)
        adapter.ask('configurationDone')
        self.client = adapter
        adapter.stopped()
        source = adapter.top()['source']
        self.assertEqual(self.text_of(source)['content'].rstrip('\n'), text)

    def test_a_program_is_not_run_by_what_it_has_put_into_linecache(self):
        self.at_mark(WITH_CACHE_OF_ITS_OWN)
        source = self.frames()[1]['source']
        self.assert_('Bytecode' in self.text_of(source)['content'])
        self.client.go()
        self.assertEqual(self.program.ended()[0], '[]\n')

    def test_texts_of_one_name_are_told_apart(self):
        self.at_mark(GENERATED + '''
text = text.replace('call()', '[call()]')
linecache.cache['<generated-3>'] = len(text), None, text.splitlines(True), '<generated-3>'
exec compile(text, '<generated-3>', 'exec') in space
space['made'](stop)
''')
        before = self.frames()[1]['source']
        self.client.go()
        self.client.stopped()
        after = self.frames()[1]['source']
        self.assertNotEqual(after['sourceReference'], before['sourceReference'])
        self.assertEqual(self.text_of(after)['content'], 'def made(call):\n    return [call()]\n')
        self.assertEqual(self.text_of(before)['content'], 'def made(call):\n    return call()\n')

    # Bytecode.

    def test_code_without_a_source_is_shown_as_its_instructions(self):
        self.at_mark(LOST)
        frame = self.frames()[1]
        answer = self.text_of(frame['source'])
        lines = answer['content'].splitlines()
        self.assertEqual(answer['mimeType'], 'text/plain')
        self.assertEqual(
            lines[0], '# Bytecode of lost, since its source is not found: <string>, line 1')
        self.assertEqual(lines[frame['line'] - 1].split()[1:], ['CALL_FUNCTION', '0'])
        words = [line.split() for line in lines]
        self.assert_(['LOAD_FAST', '1', '(mark)'] in [line[1:] for line in words])
        self.assert_(['LOAD_CONST', '1', '(5)'] in [line[1:] for line in words])
        self.assertEqual([line[0] for line in words if line and line[1:2] == ['0']], ['2'])

    def test_a_step_in_code_without_a_source_goes_on_in_its_instructions(self):
        self.at_mark(LOST)
        line = self.frames()[1]['line']
        self.client.step('stepOut')
        self.assertEqual(self.client.top()['line'], line)
        self.client.step()
        self.assertEqual(self.client.top()['name'], '<module>')

    def test_compiled_files_without_a_source(self):
        folder = os.path.realpath(self.folder)
        path = self.script('def run(call):\n    return call()\n', 'compiled.py')
        py_compile.compile(path)
        os.unlink(path)
        self.at_mark('import compiled\ndef stop():\n    return 7  # here\ncompiled.run(stop)\n')
        source = self.frames()[1]['source']
        self.assertEqual(source['path'], os.path.join(folder, 'compiled.py'))
        self.assert_(self.text_of(source)['content'].startswith('# Bytecode of run'))

    def test_no_breakpoints_are_set_in_instructions(self):
        self.at_mark(LOST)
        source = self.frames()[1]['source']
        self.assertEqual(
            self.client.refusal('setBreakpoints', source=source, breakpoints=[{'line': 3}]),
            'this is no text of the program')

    def test_constants_of_the_programs_own_run_nothing(self):
        self.at_mark('''
import types
class Constant(tuple):
    def __repr__(self):
        print 'asked'
    __getitem__ = __iter__ = __len__ = __repr__
def lost(call):
    5
    return call(), 77
code = lost.func_code
consts = tuple([Constant() if one == 77 else one for one in code.co_consts])
lost = types.FunctionType(types.CodeType(
    code.co_argcount, code.co_nlocals, code.co_stacksize, code.co_flags, code.co_code, consts,
    code.co_names, code.co_varnames, '<lost>', 'lost', 1, ''), globals())
def stop():
    return 7  # here
lost(stop)
''')
        self.assert_('(<Constant object>)' in self.text_of(self.frames()[1]['source'])['content'])
        self.client.go()
        self.assertEqual(self.program.ended()[0], '')


class MappedSourceTest(TestCase):

    def begin_far_away(self, mappings):
        """The program, whose folder has another name to the client."""
        folder = os.path.realpath(self.folder)
        for name in 'app', 'lib':
            os.mkdir(os.path.join(folder, name))
        self.library = os.path.join(folder, 'lib', 'library.py')
        self.script('def run(call):\n    return call()\n', 'lib/library.py')
        path = self.script('''\
import sys
sys.path.insert(0, %r)
import library
def stop():
    return 7  # here
library.run(stop)
library.run(stop)
''' % os.path.dirname(self.library), 'app/prog.py')
        self.program = self.opened(dap_session.Program(path, ['--wait']))
        self.client = self.connect(self.program)
        self.client.begin({'pathMappings': mappings})
        self.client.ask('setBreakpoints', source={'path': '/local/prog.py'},
                        breakpoints=[{'line': 5}])
        self.client.ask('configurationDone')
        self.client.stopped()

    def begin_with_app(self):
        self.begin_far_away([{
            'localRoot': '/local',
            'remoteRoot': os.path.join(os.path.realpath(self.folder), 'app')}])

    def test_a_file_that_no_mapping_reaches_is_asked_for(self):
        self.begin_with_app()
        inner, outer = self.frames()[:2]
        self.assertEqual(inner['source'], {'name': 'prog.py', 'path': '/local/prog.py'})
        source = outer['source']
        self.assertEqual((source['name'], source['path']), ('library.py', self.library))
        self.assertEqual(self.text_of(source), {
            'content': open(self.library).read(), 'mimeType': 'text/x-python'})
        loaded = self.client.ask('loadedSources')['sources']
        self.assert_(source in loaded and inner['source'] in loaded)

    def test_breakpoints_in_what_the_client_has_asked_for(self):
        self.begin_with_app()
        source = self.frames()[1]['source']
        body = self.client.ask('setBreakpoints', source=source, breakpoints=[{'line': 2}])
        self.assertEqual(body['breakpoints'][0]['source'], source)
        self.client.go()
        self.assertEqual(self.client.stopped(), 'breakpoint run:2')
        self.assertEqual(self.client.top()['source'], source)

    def test_a_reference_of_an_earlier_session_is_not_taken_for_another_file(self):
        self.begin_with_app()
        source = dict(self.frames()[1]['source'], path='/local/prog.py', name='prog.py')
        body = self.client.ask('setBreakpoints', source=source, breakpoints=[{'line': 7}])
        self.assertEqual(body['breakpoints'][0]['source']['path'], '/local/prog.py')

    def test_a_file_that_the_client_has_named_is_one_that_it_has(self):
        self.begin_with_app()
        self.client.ask('setBreakpoints', source={'path': self.library}, breakpoints=[])
        self.assertEqual(self.frames()[1]['source'], {
            'name': 'library.py', 'path': self.library})

    def test_without_mappings_files_are_the_clients_own(self):
        self.at_mark(GENERATED)
        self.assertEqual(self.client.top()['source'], {
            'name': 'prog.py', 'path': self.program.path})
