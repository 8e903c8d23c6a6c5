"""python -m sorrel, installed, under the interpreter alone."""

import os
from distutils import sysconfig

import attach_session
import dap_session
import installed_case
from installed_case import SORREL

PROGRAM = '''\
import sys
def double(number):
    return number * 2  # here
print double(21), sys.argv[1:]
'''
# A module that nobody means.
WRONG = 'raise SystemExit("the wrong module")\n'


class Program(dap_session.Program):
    start = ['-m', SORREL]


class InstalledTest(installed_case.TestCase):

    def setUp(self):
        installed_case.TestCase.setUp(self)
        self.install()

    def debug(self, typed, *arguments):
        """What was written to the standard output; nothing else may have been."""
        out, err, status = self.run_host('-m', SORREL, *arguments, typed=typed)
        self.assertEqual((err, status), ('', 0))
        return out

    def refusal(self, *arguments):
        out, err, status = self.run_host('-m', SORREL, *arguments)
        self.assertEqual((out, status), ('', 2))
        return err


class TerminalTest(InstalledTest):

    def test_a_program_is_debugged(self):
        path = self.script(PROGRAM)
        out = self.debug('break double\ncontinue\nprint number\ncontinue\n', path, '-v', 'x')
        self.assertEqual(out, '''\
> %(path)s(1)<module>()
-> import sys
(sorrel) Breakpoint 1 at %(path)s:3
(sorrel) > %(path)s(3)double()
-> return number * 2  # here
(sorrel) 21
(sorrel) 42 ['-v', 'x']
The program ended with exit status 0.
''' % {'path': path})

    def test_a_module_is_debugged(self):
        self.script(PROGRAM, os.path.join('elsewhere', 'tool.py'))
        path = os.path.join(os.getcwd(), 'tool.py')
        for arguments in ('-m', 'tool', '--wait', '-m'), ('-mtool', '--wait', '-m'):
            out = self.debug('continue\n', *arguments)
            self.assertEqual(out, '''\
> %s(1)<module>()
-> import sys
(sorrel) 42 ['--wait', '-m']
The program ended with exit status 0.
''' % path)

    def test_a_package_with_a_main_module_is_debugged(self):
        os.mkdir('pack')
        self.script('', 'elsewhere/pack/__init__.py')
        self.script('print __package__, __name__\n', 'elsewhere/pack/__main__.py')
        self.assert_in('(sorrel) pack __main__\n', self.debug('continue\n', '-m', 'pack'))

    def test_the_program_sees_what_it_sees_alone(self):
        path = self.script('''\
import os, subprocess, sys
print sys.argv, sys.path, __name__, __package__, __file__
print sorted(os.environ.items())
print subprocess.call([sys.executable, '-c', 'import a_library'])
''')
        self.script('print "the library"\n', os.path.join('site', 'a_library.py'))
        alone = self.run_host('-u', path, 'x')
        self.assertEqual(alone[1:], ('', 0))
        out = self.run_host('-u', '-m', SORREL, path, 'x', typed='continue\n')[0]
        self.assertEqual(out.split('(sorrel) ')[1],
                         alone[0] + 'The program ended with exit status 0.\n')

    def test_the_server_imports_nothing_from_the_folder_that_it_is_started_in(self):
        for name in 'optparse', 'json', 'socket', 'collections', 'threading', 'codecs':
            self.script(WRONG, os.path.join('elsewhere', name + '.py'))
        path = self.script(PROGRAM)
        self.assert_in('42 []\n', self.debug('continue\n', path))
        program = self.opened(Program(path))
        self.assertEqual(program.ended(), ('42 []\n', 0))

    def test_it_is_found_through_the_folder_that_it_is_started_in(self):
        del os.environ['PYTHONPATH']
        os.chdir(self.site)
        self.assert_in('42 []\n', self.debug('continue\n', self.script(PROGRAM)))

    def test_hooks_are_loaded(self):
        self.script('def make():\n    print "made"\n', 'hooks.py')
        self.assert_in('made\n', self.debug('continue\n', '--hook', 'hooks:make',
                                            self.script(PROGRAM)))


class ListeningTest(InstalledTest):

    def test_a_client_debugs_the_program(self):
        program = self.opened(Program(self.script(PROGRAM), ['--wait']))
        client = self.attach(program, '# here')
        self.assertEqual(client.stopped(), 'breakpoint double:3')
        self.assertEqual(client.evaluate('number'), '21')
        client.go()
        self.assertEqual(program.ended(), ('42 []\n', 0))

    def test_a_client_debugs_a_module(self):
        self.script(PROGRAM, os.path.join('elsewhere', 'tool.py'))
        # What comes after the module's name is the module's.
        program = self.opened(Program(os.path.abspath('tool.py'), ['--wait', '-m', 'tool', 'x']))
        client = self.attach(program, '# here')
        self.assertEqual(client.stopped(), 'breakpoint double:3')
        client.go()
        self.assertEqual(program.ended(), ("42 ['x', '--', %r]\n" % program.path, 0))

    def test_the_adapter_starts_programs_with_the_interpreter_itself(self):
        adapter = self.opened(dap_session.Adapter())
        path = self.script(PROGRAM)
        adapter.launch(program=path)
        adapter.ask('setBreakpoints', source={'path': path}, breakpoints=[{'line': 3}])
        adapter.ask('configurationDone')
        self.assertEqual(adapter.stopped(), 'breakpoint double:3')
        self.assertEqual(adapter.evaluate('sys.executable'), repr(installed_case.sys.executable))
        adapter.go()
        self.assertEqual(adapter.event('exited'), {'exitCode': 0})


class UsageTest(InstalledTest):

    def test_a_program_that_runs_already(self):
        flag = self.script('', 'flag')
        program = self.opened(attach_session.Unaware(
            self.script(attach_session.WORK), [flag]))
        program.wrote('ready')
        for _ in range(2):
            out = self.debug('break %s:%d\ncontinue\np total - total\n' % (
                program.path, program.line('# work')), '--pid', str(program.pid))
            self.assert_in('(sorrel) 0\n', out)
        os.unlink(flag)
        self.assertEqual(program.ended(), ('ready\nover 1\n', 0))

    def test_refusals(self):
        path = self.script(PROGRAM)
        for arguments, complaint in [
                ([], 'needs a program'),
                (['-m'], '-m option requires an argument'),
                (['--fast', path], 'no such option: --fast'),
                (['--wait', path], '--wait goes with --listen'),
                (['--no-token', path], '--token-file and --no-token go with --listen'),
                (['--token-file', 'x', path], '--token-file and --no-token go with --listen'),
                (['--listen', '0', '--token-file', 'x', '--no-token', path],
                 'needs at most one of --token-file and --no-token'),
                (['--listen', 'there', path], 'not [HOST:]PORT nor unix:PATH: there'),
                (['--hook', 'x', path], 'not MODULE:NAME: x'),
                (['--handshake', 'x', path], 'no such option: --handshake'),
                (['--pid', 'x'], 'not a process id: x'),
                (['--pid', '1', path], '--pid goes with nothing but --just-my-code'),
                (['--pid', '1', '--post-mortem'], '--pid goes with nothing but --just-my-code'),
                (['nothing.py'], "can't open program 'nothing.py': No such file or directory"),
                (['-m', 'nothing'], 'No module named nothing'),
                (['--listen', '0', '-m', 'nothing'], 'No module named nothing')]:
            self.assertEqual(self.refusal(*arguments), 'sorrel: %s\n' % complaint)

    def test_a_core_that_is_not_there(self):
        os.remove(self.module('_sorrel'))
        self.assertEqual(self.refusal(self.script(PROGRAM)),
                         'sorrel: cannot load the native core: No module named _sorrel\n')

    def test_a_core_that_cannot_be_loaded(self):
        path = self.module('tmorvik26_vs2012_x64')
        output = open(path, 'r+')
        output.truncate(10)
        output.close()
        for arguments in [self.script(PROGRAM)], ['--listen', '0', 'x']:
            self.assertEqual(self.refusal(*arguments),
                             'sorrel: cannot load the native core: %s: file too short\n' % path)

    def test_a_core_of_another_version(self):
        os.remove(self.module('_sorrel'))
        self.script('HOST_VERSION = "2.5.10"\n', 'site/_sorrel.py')
        self.assertEqual(self.refusal(self.script(PROGRAM)), 'sorrel: cannot load the native core: '
                         'it was built for Python 2.5\n')

    def module(self, name):
        return os.path.join(self.site, name + sysconfig.get_config_var('SO'))

    def test_version_and_help(self):
        self.assertEqual(self.run_host('-m', SORREL, '--version'), ('Morvik 0.1.0\n', '', 0))
        out, err, status = self.run_host('-m', SORREL, '--help')
        self.assert_in('python -m sorrel [--tty DEVICE] [--no-color] [--no-templates] '
                       '[--just-my-code]\n', out)
        self.assertEqual((err, status), ('', 0))

    def test_the_demo_is_not_installed(self):
        examples = os.path.join(self.site, 'examples', 'ledger.py')
        self.assertEqual(
            self.run_host('-m', 'sorrel.main', 'demo', 'ledger'),
            ('', "sorrel: can't open program '%s': No such file or directory\n" % examples, 2))
