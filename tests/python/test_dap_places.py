"""Where clients' breakpoints are: in archives and made texts, at functions, in modules to come."""

import os
import py_compile
import zipfile

import dap_session
import harness

MODULE = '''\
def greet(name):
    # Nobody stops here.
    return 'hello ' + name  # in greet


class Shop(object):

    def sell(self):
        return 1  # in sell
'''
# Waits for its clients to say what is to be done.
WAITING = '''\
import sys, time
sys.path[:0] = %r
go = []
while not go:
    time.sleep(0.01)  # waits
%s
'''


class PlacesTest(dap_session.TestCase):

    def module(self, path, text=MODULE):
        path = os.path.join(self.folder, path)
        if not os.path.isdir(os.path.dirname(path)):
            os.makedirs(os.path.dirname(path))
        self.write(path, text)
        return path

    def write(self, path, text):
        written = open(path, 'w')
        written.write(text)
        written.close()

    def archive(self, name, **modules):
        archive = zipfile.ZipFile(os.path.join(self.folder, name), 'w')
        for module, text in modules.items():
            archive.writestr(module + '.py', text)
        archive.close()
        return archive.filename

    def attached(self, text, *folders):
        """A client of a program that waits, and has stopped there."""
        program = self.serve(WAITING % ([self.folder] + list(folders), text))
        client = self.attach(program, '# waits')
        client.stopped()
        self.break_at(client, program)
        return client

    def set(self, client, path, *lines):
        return client.ask('setBreakpoints', source={'path': path},
                          breakpoints=[{'line': line} for line in lines])['breakpoints']

    def set_functions(self, client, *names):
        return client.ask('setFunctionBreakpoints', breakpoints=[
            {'name': name} for name in names])['breakpoints']

    def go_on(self, client):
        client.evaluate('go.append(1)', 'repl')
        client.go()

    def lines(self, client, source, line, end):
        return [place['line'] for place in client.ask(
            'breakpointLocations', source=source, line=line, endLine=end)['breakpoints']]


class ArchiveTest(PlacesTest):

    def test_a_module_to_come_in_an_archive(self):
        archive = self.archive('lib.egg', zipped=MODULE)
        client = self.attached("import zipped\nzipped.greet('you')", archive)
        path = os.path.join(archive, 'zipped.py')
        told, = self.set(client, path, 2)
        self.assertEqual((told['verified'], told['line'], told['reason'], told['message']),
                         (False, 3, 'pending', 'the module has not been loaded'))
        self.go_on(client)
        self.assertEqual(client.stopped(), 'breakpoint greet:3')
        changed = client.event('breakpoint')['breakpoint']
        self.assertEqual((changed['id'], changed['verified'], changed['line']),
                         (told['id'], True, 3))
        source = client.top()['source']
        self.assertEqual(source['path'], path)
        self.assertEqual(client.ask('source', source=source, sourceReference=source[
            'sourceReference'])['content'], MODULE)
        # What the source is described with names it, too.
        told, = client.ask('setBreakpoints', source={'sourceReference': source['sourceReference']},
                           breakpoints=[{'line': 9}])['breakpoints']
        self.assertEqual((told['verified'], told['line']), (True, 9))
        self.assertEqual(self.lines(client, source, 1, 4), [1, 3])

    def test_a_program_in_an_archive(self):
        archive = self.archive('app.zip', __main__='def run():\n    return 1\n\nrun()\n')
        client = self.opened(dap_session.Adapter())
        client.launch(program=archive)
        told, = self.set(client, os.path.join(archive, '__main__.py'), 3)
        self.assertEqual((told['verified'], told['line']), (True, 4))
        self.assertEqual(self.set_functions(client, 'run')[0]['line'], 2)
        client.ask('configurationDone')
        self.assertEqual(client.stopped(), 'breakpoint <module>:4')
        client.go()
        self.assertEqual(client.stopped(), 'function breakpoint run:2')


class TextTest(PlacesTest):

    def test_a_text_that_the_program_has_made(self):
        made = 'def f(n):\n\n    return n + 1\n'
        client = self.attached('''
import linecache
made = %r
linecache.cache['<made>'] = len(made), None, made.splitlines(True), '<made>'
exec compile(made, '<made>', 'exec')
f(1)  # first
f(2)''' % made)
        program = client.top()['source']['path']
        self.set(client, program, 11)
        self.go_on(client)
        client.stopped()
        client.go('stepIn')
        self.assertEqual(client.stopped(), 'step f:3')
        source = client.top()['source']
        self.assertEqual(client.ask('source', source=source, sourceReference=source[
            'sourceReference'])['content'], made)
        told, = client.ask('setBreakpoints', source={'sourceReference': source['sourceReference']},
                           breakpoints=[{'line': 2, 'logMessage': ''}])['breakpoints']
        self.assertEqual((told['verified'], told['line'], told['source']), (True, 3, source))
        self.assertEqual(self.lines(client, source, 1, 9), [1, 3])
        client.go()
        self.assertEqual(client.stopped(), 'breakpoint f:3')

    def test_a_source_that_was_never_described(self):
        client = self.attached('pass')
        self.assertEqual(client.refusal('setBreakpoints', source={'sourceReference': 77},
                                        breakpoints=[{'line': 1}]), 'its source is not known')


class FunctionTest(PlacesTest):

    def test_a_bare_name_is_found_in_all_of_the_users_code(self):
        self.module('shop.py')
        self.module('store.py')
        client = self.attached('import shop, store\nshop.Shop().sell()\nstore.Shop().sell()')
        told, = self.set_functions(client, 'sell')
        self.assertEqual((told['verified'], told['message']),
                         (False, 'no function sell is loaded'))
        self.go_on(client)
        self.assertEqual(client.stopped(), 'function breakpoint sell:9')
        client.event('breakpoint')
        self.assertEqual(client.event('breakpoint')['breakpoint']['message'],
                         '2 places: shop.py:9, store.py:9')
        client.go()
        self.assertEqual(client.stopped(), 'function breakpoint sell:9')

    def test_a_function_of_the_program_is_preferred(self):
        self.module('shop.py')
        client = self.attached('def sell():\n    return 2\nimport shop\nshop.Shop().sell()\nsell()')
        told, = self.set_functions(client, 'sell')
        self.assertEqual((told['verified'], told['line'], 'message' in told), (True, 7, False))
        self.go_on(client)
        self.assertEqual(client.stopped(), 'function breakpoint sell:7')


class ReasonTest(PlacesTest):

    def test_another_file_is_loaded_under_the_name(self):
        other, path = self.module('a/util.py'), self.module('b/util.py')
        client = self.attached('pass', os.path.dirname(other))
        client.evaluate('import util', 'repl')
        told, = self.set(client, path, 3)
        self.assertEqual((told['verified'], told['message']),
                         (False, 'another file is loaded as util: ' + other))

    def test_there_is_no_such_file(self):
        client = self.attached('pass')
        path = os.path.join(self.folder, 'none.py')
        told, = self.set(client, path, 3)
        self.assertEqual((told['verified'], told['reason'], told['message']),
                         (False, 'pending', 'there is no file %s where the program runs' % path))

    def test_no_path_mapping_leads_there(self):
        program = self.serve(WAITING % ([], ''))
        client = self.connect(program)
        client.begin({'pathMappings': [{'localRoot': '/here', 'remoteRoot': '/there'}]})
        told, = self.set(client, '/elsewhere/x.py', 3)
        self.assertEqual(told['message'], 'there is no file /elsewhere/x.py where the program '
                                          'runs, and no path mapping leads there')
        told, = self.set(client, '/here/x.py', 3)
        self.assertEqual(told['message'],
                         'there is no file /there/x.py where the program runs')

    def test_a_file_that_differs_by_the_case_of_letters(self):
        path = self.module('Mixed/Util.py')
        client = self.attached('import Util\nUtil.greet("you")', os.path.dirname(path))
        told, = self.set(client, path.replace('Mixed/Util', 'mixed/util'), 3)
        self.assertEqual(told['source']['path'], path)
        self.go_on(client)
        self.assertEqual(client.stopped(), 'breakpoint greet:3')
        self.assertEqual(client.event('breakpoint')['breakpoint']['message'],
                         'the file is called ' + path)

    def test_a_file_that_has_changed_and_is_loaded_anew(self):
        path = self.module('late.py')
        py_compile.compile(path)
        client = self.attached("reload(late)\nimport string\nlate.greet('you')")
        client.evaluate('import late', 'repl')
        told, = self.set(client, path, 3)
        self.assertEqual((told['verified'], 'message' in told), (True, False))
        self.write(path, '# More.\n' + MODULE)
        os.utime(path, (1, 1))
        told, = self.set(client, path, 3)
        self.assertEqual((told['verified'], told['line'], told['message']),
                         (True, 4, 'the file has changed since it was loaded'))
        self.go_on(client)
        self.assertEqual(client.stopped(), 'breakpoint greet:4')


    def test_lines_of_a_module_that_is_imported_anew(self):
        path = self.module('late.py')
        client = self.attached("del sys.modules['late']\nimport late\nlate.greet('you')")
        client.evaluate('import late', 'repl')
        told, = self.set(client, path, 2)
        self.assertEqual(told['line'], 3)
        at_function, = self.set_functions(client, 'late.greet')
        self.write(path, '# More.\n# And more.\n' + MODULE)
        os.utime(path, (1, 1))
        self.go_on(client)
        self.assertEqual(client.stopped(), 'breakpoint <module>:3')
        client.go()
        self.assertEqual(client.stopped(), 'function breakpoint greet:5')
        lines = dict((event['body']['breakpoint']['id'], event['body']['breakpoint']['line'])
                     for event in client.messages if event.get('event') == 'breakpoint')
        self.assertEqual(lines[at_function['id']], 5)


class LocationsTest(PlacesTest):

    def test_lines_with_code(self):
        path = self.module('late.py')
        client = self.attached('pass')
        self.assertEqual(self.lines(client, {'path': path}, 1, 20), [1, 3, 6, 8, 9])
        self.assertEqual(self.lines(client, {'path': path}, 4, 5), [])
        self.assertEqual([place['line'] for place in client.ask(
            'breakpointLocations', source={'path': path}, line=3)['breakpoints']], [3])
        self.assertEqual(client.refusal('breakpointLocations', source={}, line=3),
                         'no file is named')
        self.assert_in('cannot read /none.py', client.refusal(
            'breakpointLocations', source={'path': '/none.py'}, line=3))


if __name__ == '__main__':
    harness.main()
