"""Programs that listen because their environment says so, where sorrel is installed."""

import os
import socket

import installed_case
import public_case

PROGRAM = '''\
import os, sys
print 'sorrel' in sys.modules  # first
print sys.argv[1:]
'''


class EnvironmentTest(installed_case.TestCase):

    def setUp(self):
        installed_case.TestCase.setUp(self)
        # Where the interpreter looks for it in any case.
        os.environ['PYTHONUSERBASE'] = self.folder
        del os.environ['PYTHONPATH']
        out, err, status = self.run_host('-c', 'import site; print site.USER_SITE')
        self.site = out.strip()
        self.install()

    def begin(self, text, *arguments, **environment):
        os.environ.update(environment)
        return self.opened(public_case.Program(self.script(text, 'prog.py'), *arguments))

    def test_nothing_happens_without_it(self):
        program = self.begin(PROGRAM, 'x', SORREL_WAIT='1', SORREL_LISTEN='')
        self.assertEqual(program.ended(), ("False\n['x']\n", 0))
        self.assertEqual(program.errors(), '')

    def test_the_program_waits_for_a_client(self):
        program = self.begin(PROGRAM, 'x', SORREL_LISTEN='0', SORREL_WAIT='1')
        program.listens()
        client = self.attach(program, '# first')
        self.assertEqual(client.stopped(), 'breakpoint <module>:2')
        self.assertEqual(client.evaluate('sys.argv[1]'), "'x'")
        client.go()
        self.assertEqual(program.ended(), ("True\n['x']\n", 0))
        self.assertEqual(program.errors(), '')

    def test_the_program_does_not_wait(self):
        for wait in '', '0':
            program = self.begin('''\
import sys, time
print 'runs'
while not sys.stdin.closed:
    time.sleep(0.01)  # turn
''', SORREL_LISTEN='127.0.0.1:0', SORREL_WAIT=wait)
            program.listens()
            program.wrote('runs\n')
            for _ in range(2):
                client = self.attach(program, '# turn')
                self.assertEqual(client.stopped(), 'breakpoint <module>:4')
                client.ask('disconnect')

    def test_what_the_program_starts_does_not_listen(self):
        program = self.begin('''\
import os, subprocess, sys
if len(sys.argv) == 1:
    print subprocess.call([sys.executable, '-c', 'import sys; print "_sorrel" in sys.modules'])
    sys.stdout.flush()
    # The process stays the same.
    os.execv(sys.executable, [sys.executable, __file__, 'again'])
print sys.argv[1:]
''', SORREL_LISTEN='0')
        program.listens()
        program.listens()
        self.assertEqual(program.ended(), ("False\n0\n['again']\n", 0))

    def test_whatever_goes_wrong_is_said_in_one_line(self):
        taken = socket.socket()
        taken.bind(('127.0.0.1', 0))
        taken.listen(1)
        port = taken.getsockname()[1]
        for listen, complaint in [
                ('here', 'not [HOST:]PORT nor unix:PATH: here'),
                ('70000', 'not [HOST:]PORT nor unix:PATH: 70000'),
                ('unix:/no/such/folder', 'cannot listen: [Errno 2] No such file or directory'),
                (str(port), 'cannot listen: [Errno 98] Address already in use')]:
            self.assert_complaint(listen, complaint)
        taken.close()

    def test_a_core_that_cannot_be_loaded(self):
        self.script('raise ImportError("not built")\n', os.path.join(self.site, '_sorrel.py'))
        for name in os.listdir(self.site):
            if name.startswith('_sorrel') and name.endswith('.so'):
                os.unlink(os.path.join(self.site, name))
        self.assert_complaint('0', 'not built')

    def test_a_package_that_cannot_be_loaded(self):
        package = os.path.join(self.site, 'sorrel', '__init__.py')
        self.script('syntax error\n', package)
        # It is as old as what was installed, to the second.
        os.unlink(package + 'c')
        self.assert_complaint('0', 'invalid syntax (__init__.py, line 1)')

    def assert_complaint(self, listen, complaint):
        program = self.begin(PROGRAM, 'x', SORREL_LISTEN=listen, SORREL_WAIT='1')
        self.assertEqual(program.ended()[1], 0)
        self.assert_in("['x']\n", program.out)
        self.assertEqual(program.errors(), 'sorrel: SORREL_LISTEN: %s\n' % complaint)
