"""New programs of a program run under the server, and see and do what they would without it."""

import os
import pickle
import posix
import re
import signal
import subprocess
import sys
import zipfile

import harness
from sorrel.processes import programs
from sorrel.processes.programs import Settings

# What a program can see of how it was started.
LOOK = r'''
import os, sys
def look():
    main = sys.modules['__main__'].__dict__
    print 'argv', sys.argv
    print 'path', sys.path
    print 'flags', sys.flags
    print 'warnings', sys.warnoptions
    print 'executable', sys.executable, sys.prefix
    print 'folder', os.getcwd()
    for name, value in sorted(os.environ.items()):
        print 'environment', name, repr(value)
    for name in '__name__', '__doc__', '__file__', '__package__':
        print 'main', name, repr(main.get(name, 'missing'))
    print 'loader', type(main.get('__loader__')).__name__
    print 'main', main is globals(), sorted(main)
    for descriptor in range(40):
        if os.path.islink('/proc/self/fd/%d' % descriptor):
            print 'descriptor', descriptor, os.readlink('/proc/self/fd/%d' % descriptor)
    try:
        print 'typed', repr(sys.stdin.read())
    except IOError:
        print 'typed nothing'
    print 'debugged', 'sorrel.service.service' in sys.modules
    sys.stdout.flush()
look()
'''
TIME = 100


class TestCase(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        os.environ.pop('PYTHONUNBUFFERED', None)
        # What has been compiled says so in __file__ at the second time.
        os.environ['PYTHONDONTWRITEBYTECODE'] = '1'
        self.look = self.script(LOOK, 'look.py')
        self.settings = Settings(None, '')
        os.chdir(self.folder)
        harness.need_interpreter_alone(self)

    def tearDown(self):
        programs.remove()
        os.chdir('/')
        harness.TestCase.tearDown(self)

    def install(self):
        programs.install(lambda name: self.settings)

    def outcome(self, start):
        """(output, status) of what is started in a forked process, and which must not return."""
        path = os.path.join(self.folder, 'output')
        child = os.fork()
        if child == 0:
            try:
                signal.alarm(TIME)
                output = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC)
                os.dup2(output, 1)
                os.dup2(output, 2)
                os.close(output)
                os.dup2(os.open(os.devnull, os.O_RDONLY), 0)
                status = start()
                os.write(1, 'returned %r\n' % status)
                os._exit(77)
            except:
                os.write(1, 'raised %r' % (sys.exc_info()[1],))
                os._exit(78)
        status = os.waitpid(child, 0)[1]
        # What a debug build says at its end.
        return re.sub(r'\[\d+ refs\]\n', '', open(path).read()), status

    def both(self, start, is_debugged=True):
        """The outcome, which is the same with and without the server but for being debugged."""
        alone = self.outcome(start)
        self.install()
        debugged = self.outcome(start)
        programs.remove()
        self.assertEqual((self.told(alone[0]), alone[0][-500:]), (['False'], alone[0][-500:]))
        self.assertEqual(self.told(debugged[0]), ['%s' % is_debugged])
        self.assertEqual(debugged[0].replace('debugged True\n', 'debugged False\n').splitlines(),
                         alone[0].splitlines())
        self.assertEqual(debugged[1], alone[1])
        return alone[0]

    def told(self, output):
        return re.findall(r'^debugged (\w+)$', output, re.MULTILINE)

    def both_by_execv(self, *words, **how):
        path = how.pop('path', sys.executable)
        return self.both(lambda: os.execv(path, (path,) + words), **how)


class Surroundings(TestCase):

    def test_a_script(self):
        seen = self.both_by_execv(self.look, '-x', '', 'two words', '--')
        self.assert_in("argv ['%s', '-x', '', 'two words', '--']\n" % self.look, seen)

    def test_a_relative_script(self):
        os.mkdir('sub')
        os.rename('look.py', 'sub/look.py')
        self.both_by_execv('sub/look.py')
        os.symlink('sub/look.py', 'link.py')
        self.both_by_execv('link.py')

    def test_a_script_that_looks_like_an_option(self):
        for name in '-m', '-look.py', '--':
            self.script(LOOK, name)
            seen = self.both_by_execv('--', name, 'a')
            self.assert_in("argv ['%s', 'a']\n" % name, seen)

    def test_text(self):
        for words in ('-c', LOOK), ('-c', LOOK, '-c', 'a'), ('-c' + LOOK,), ('-uSc', LOOK):
            seen = self.both_by_execv(*words)
        self.assert_in("argv ['-c']\n", seen)
        self.assert_in("main __file__ 'missing'\n", seen)

    def test_a_module(self):
        os.mkdir('package')
        self.script('print __name__, __file__\nimport sys\nprint sys.argv\n', 'package/__init__.py')
        self.script(LOOK, 'package/look.py')
        for words in ('-m', 'look'), ('-mlook', '-m', 'a'), ('-um', 'package.look', 'a'):
            self.both_by_execv(*words)
        os.environ['PYTHONPATH'] = self.folder
        self.both_by_execv('-m', 'look')

    def test_a_package(self):
        if sys.version_info < (2, 7):
            self.skip('2.6 runs no packages')
        os.mkdir('package')
        self.script('', 'package/__init__.py')
        self.script(LOOK, 'package/__main__.py')
        self.both_by_execv('-m', 'package', 'a')

    def test_a_folder(self):
        os.mkdir('program')
        self.script(LOOK, 'program/__main__.py')
        for name in 'program', 'program/', os.path.join(self.folder, 'program'):
            self.assert_in("argv ['%s', 'a']\n" % name, self.both_by_execv(name, 'a'))

    def test_an_archive(self):
        for name in 'program.zip', 'program':
            archive = zipfile.ZipFile(name, 'w')
            archive.write('look.py', '__main__.py')
            archive.close()
            self.assert_in('loader zipimporter\n', self.both_by_execv(name, 'a'))

    def test_options(self):
        for words in (['-u'], ['-E'], ['-S'], ['-ES'], ['-s', '-O'], ['-OO'], ['-B', '-t', '-tt'],
                      ['-R'], ['-b'], ['-Qnew'], ['-Q', 'warn'], ['-Werror'],
                      ['-W', 'ignore', '-Wonce'], ['-uEWerror']):
            self.both_by_execv(*words + [self.look])

    def test_environment(self):
        environment = {'PATH': '/bin', 'ODD': 'a=b\n\xff', 'EMPTY': ''}
        words = [sys.executable, self.look]
        seen = self.both(lambda: os.execve(sys.executable, words, environment))
        self.assert_in("environment ODD 'a=b\\n\\xff'\n", seen)
        self.assertEqual(len(environment), 3)
        os.environ['NEW'] = 'new'
        os.putenv('HIDDEN', 'hidden')
        self.assert_in("environment HIDDEN 'hidden'\n", self.both_by_execv(self.look))
        self.both(lambda: os.execve(sys.executable, words, os.environ))
        self.both(lambda: os.execle(sys.executable, *words + [environment]))

    def test_odd_bytes(self):
        word = ''.join([chr(number) for number in range(1, 256)])
        self.assert_in(repr(word), self.both_by_execv(self.look, word))
        self.both_by_execv('-c', '# coding: latin-1\nodd = u"\xe9"\n' + LOOK)
        self.both_by_execv('-c', 'odd = "\xe9\xff"\n' + LOOK)

    def test_unicode(self):
        os.symlink('look.py', 'plain.py')
        self.both_by_execv(u'plain.py', u'a')
        self.both(lambda: os.execv(unicode(sys.executable), [unicode(sys.executable), u'plain.py']))

    def test_the_name_of_the_process(self):
        # It looks for its library by this name.
        os.environ['PYTHONHOME'] = sys.prefix
        for name in 'myprogram', 'python', '', '-':
            self.both(lambda: os.execv(sys.executable, [name, '-c', LOOK]))

    def test_scripts_with_a_first_line(self):
        for line in ('#!' + sys.executable, '#! %s -uS ' % sys.executable,
                     '#!/usr/bin/env %s' % sys.executable):
            path = self.script(line + '\n' + LOOK, 'tool')
            os.chmod(path, 0755)
            for name in path, './tool':
                self.both(lambda: os.execv(name, ['ignored', 'a']))

    def test_the_longest_first_line_that_the_kernel_takes(self):
        for length in 126, 127, 128, 129, 254, 255, 256, 257:
            name = os.path.join(self.folder, 'python'.ljust(length - 3 - len(self.folder), '_'))
            os.symlink(sys.executable, name)
            path = self.script('#!%s\n' % name + LOOK, 'tool')
            os.chmod(path, 0755)
            alone = self.outcome(lambda: os.execv(path, ['tool']))
            if 'debugged' in alone[0]:
                self.both(lambda: os.execv(path, ['tool']))
            else:
                self.install()
                self.assertEqual(self.outcome(lambda: os.execv(path, ['tool'])), alone)
                programs.remove()

    def test_env_on_the_path(self):
        os.mkdir('bin')
        os.symlink(sys.executable, 'bin/python2')
        os.environ['PATH'] = self.folder + '/bin:' + os.environ['PATH']
        path = self.script('#!/usr/bin/env python2\n' + LOOK, 'tool')
        os.chmod(path, 0755)
        self.both(lambda: os.execv(path, ['ignored', 'a']))

    def test_links_to_the_interpreter(self):
        """As in a virtual environment: it finds its library by the name that it is called by."""
        os.makedirs('env/bin')
        link = os.path.join(self.folder, 'env/bin/python')
        os.symlink(sys.executable, link)
        self.assert_in('executable ' + link, self.both_by_execv(self.look, path=link))


class Ways(TestCase):
    """How programs start others."""

    def test_execution(self):
        python, look = sys.executable, self.look
        for start in (lambda: os.execl(python, python, look),
                      lambda: posix.execv(python, [python, look]),
                      lambda: posix.execve(python, (python, look), os.environ)):
            self.both(start)

    def test_execution_by_the_path(self):
        look, name = self.look, os.path.basename(sys.executable)
        os.environ['PATH'] = '/nowhere:%s:%s' % (
            os.path.dirname(sys.executable), os.environ['PATH'])
        for start in (lambda: os.execlp(name, name, look),
                      lambda: os.execvp(name, [name, look]),
                      lambda: os.execvpe(name, [name, look], os.environ)):
            self.both(start)

    def test_spawning(self):
        python, words = sys.executable, [sys.executable, self.look]
        for start in (lambda: os._exit(os.spawnv(os.P_WAIT, python, words)),
                      lambda: os._exit(os.spawnve(os.P_WAIT, python, words, os.environ)),
                      lambda: os._exit(os.spawnvp(os.P_WAIT, python, words))):
            self.both(start)

    def subprocess(self, **how):
        words = [sys.executable, self.look, 'a']
        self.both(lambda: os._exit(subprocess.call(words, **how)))

    def test_subprocess(self):
        self.subprocess()
        self.subprocess(close_fds=True, cwd='/')

    def test_subprocess_with_an_environment(self):
        self.subprocess(env={'A': 'b'}, preexec_fn=os.setsid)

    def test_streams_of_subprocess(self):
        def start():
            process = subprocess.Popen([sys.executable, self.look], stdin=subprocess.PIPE,
                                       stdout=subprocess.PIPE)
            out = process.communicate('typed\n')[0]
            print re.sub(r'pipe:\[\d+\]', 'pipe', out)
            sys.stdout.flush()
            os._exit(process.returncode)
        self.assert_in("typed 'typed\\n'", self.both(start))

    def test_a_program_that_starts_itself_again(self):
        path = self.script('''import os, sys
if 'again' not in sys.argv:
    sys.stdout.write('first\\n')
    sys.stdout.flush()
    os.execv(sys.executable, [sys.executable] + sys.argv + ['again'])
''' + LOOK, 'again.py')
        # What it starts is not looked at in a new program that nobody asks for it.
        self.install()
        seen, status = self.outcome(lambda: os.execv(sys.executable, [sys.executable, path]))
        self.assert_in('first\n', seen)
        self.assert_in('debugged False\n', seen)
        self.assertEqual(status, 0)


class Ends(TestCase):

    def end(self, text, *options):
        self.script('import sys\n%s\n' % LOOK + text, 'prog.py')
        return self.both_by_execv(*options + ('prog.py',))

    def test_statuses(self):
        for text in ('', 'sys.exit(3)', 'sys.exit("no")', 'sys.exit(None)', 'raise SystemExit(256)',
                     'import os; os._exit(5)', 'import os; os.kill(os.getpid(), 9)',
                     'import os; os.kill(os.getpid(), 15)', 'import os; os.abort()'):
            self.end(text)

    def test_errors(self):
        self.end('def f():\n    1/0\nf()')
        self.end('raise KeyboardInterrupt')
        self.both_by_execv('-c', LOOK + 'def f():\n    1/0\nf()\n')
        self.assert_in('  File "<string>", line ', self.both_by_execv('-c', LOOK + '1/0'))

    def same(self, *words):
        alone = self.outcome(lambda: os.execv(sys.executable, (sys.executable,) + words))
        self.install()
        debugged = self.outcome(lambda: os.execv(sys.executable, (sys.executable,) + words))
        programs.remove()
        self.assertEqual(debugged, alone)
        self.assertNotEqual(alone[1], 0)

    def test_programs_that_cannot_be_run(self):
        self.script('x = (\n', 'broken.py')
        os.mkdir('empty')
        archive = zipfile.ZipFile('empty.zip', 'w')
        archive.writestr('other.py', '')
        archive.close()
        for words in (['missing.py'], ['-m', 'missing'], ['-m', 'missing.module'], ['broken.py'],
                      ['-c', 'x = ('], ['empty'], ['empty.zip'], ['-u', '/'], ['-c'], ['-z'],
                      ['-Wignore', 'missing.py']):
            self.same(*words)


class Functions(TestCase):
    """What stands in the place of the interpreter's own looks and fails like that."""

    def test_looks(self):
        for name in 'execv', 'execve':
            before = getattr(os, name)
            self.install()
            after = getattr(os, name)
            self.assert_is(after, getattr(posix, name))
            self.assert_is_not(after, before)
            self.assertEqual(
                (after.__name__, after.__doc__, after.__module__, repr(after), callable(after)),
                (before.__name__, before.__doc__, before.__module__, repr(before), True))
            self.assert_is(pickle.loads(pickle.dumps(after)), after)
            programs.remove()
            self.assert_is(getattr(os, name), before)
            self.assert_is(getattr(posix, name), before)

    def test_a_class_does_not_bind_it(self):
        self.install()
        holder = type('Holder', (object,), {'run': os.execv})
        self.assert_raises(OSError, None, holder().run, '/nowhere', ['a'])

    def failures(self, calls):
        """What each call of a function of os raises, in one of the two ways."""
        found = []
        for name, arguments in calls:
            try:
                getattr(os, name)(*arguments)
            except Exception, error:
                found.append((name, arguments, type(error), str(error)))
        return found

    def test_wrong_calls(self):
        python, words = sys.executable, ['a', self.look]
        calls = [('execv', arguments) for arguments in [
            (), (1,), (python,), (python, 'a'), (python, [1]), (python, ['a', None]),
            (python, ['a', 'b\0']), (python + '\0', ['a']), (python, {}), (python, ['a'], {}),
            ('/nowhere', ['a']), (self.folder, ['a']), (None, None)]]
        calls += [('execve', arguments) for arguments in [
            (), (python, ['a']), (python, words, None), (python, words, 1),
            (python, words, {1: 'b'}), (python, words, {'b': 1}), (python, words, {'b': 'c\0'}),
            ('/nowhere', ['a'], {}), (self.look, ['a'], {})]]
        alone = self.failures(calls)
        self.install()
        self.assertEqual(self.failures(calls), alone)
        self.assertEqual(len(alone), len(calls))
        self.assert_not_in('SORREL_CHILD', os.environ)

    def test_named_arguments(self):
        self.install()
        self.assert_raises(TypeError, 'execv() takes no keyword arguments', os.execv,
                           path='/nowhere', args=['a'])

    def test_what_the_program_has_replaced_meanwhile_stays(self):
        self.install()
        before = os.execv
        mine = os.execv = lambda path, words: None
        programs.remove()
        self.assert_is(os.execv, mine)
        self.assert_is_not(posix.execv, before)
        os.execv = posix.execv

    def test_installing_twice(self):
        before = os.execv
        self.install()
        self.install()
        programs.remove()
        self.assert_is(os.execv, before)


class LeftAlone(TestCase):

    def test_where_the_front_end_says_so(self):
        self.settings = None
        self.both_by_execv(self.look, is_debugged=False)

    def test_where_the_front_end_fails(self):
        def describe(name):
            raise ValueError
        self.install = lambda: programs.install(describe)
        self.both_by_execv(self.look, is_debugged=False)

    def test_what_is_no_program_of_python_2(self):
        asked = []
        programs.install(asked.append)
        self.assertEqual(subprocess.call(['/bin/true']), 0)
        self.assertEqual(os.spawnv(os.P_WAIT, '/bin/false', ['false']), 1)
        self.assertEqual(asked, [])

    def test_where_there_is_no_room_for_more_words(self):
        longest = 1
        while True:
            # The kernel takes each word up to 32 pages.
            words = [sys.executable, '-c', LOOK] + ['x' * 100000] * longest
            if 'raised' in self.outcome(lambda: os.execv(sys.executable, words))[0]:
                break
            longest += 1
            if longest > 100:
                self.skip('there is room for all words')
        # What fits alone need not fit with settings of this length.
        self.settings = Settings(None, 'y' * 120000)
        self.both(lambda: os.execv(sys.executable, words[:-1]), is_debugged=False)

    def test_where_the_server_cannot_be_loaded(self):
        self.settings = Settings('no_such_front_end', '')
        self.both_by_execv(self.look, 'a', is_debugged=False)
        self.both_by_execv('-uSc', LOOK, 'a', is_debugged=False)
        self.both_by_execv('-m', 'look', is_debugged=False)


class FrontEnds(TestCase):

    def test_it_is_told_what_it_is_to_know(self):
        self.script('''
import sys
def begin_child(script, text):
    from sorrel.service import late
    print (script.name, text, sys.argv, sys.path[0])
    return late.service(), False
''', 'front.py')
        os.environ['PYTHONPATH'] += ':' + self.folder
        text = 'two\nlines \xff\n'
        self.settings = Settings('front', text)
        self.install()
        seen = self.outcome(lambda: os.execv(sys.executable, [sys.executable, '-c', LOOK, 'a']))[0]
        self.assertEqual(seen.splitlines()[0], repr(('-c', text, ['-c', 'a'], '')))
        self.assert_in('debugged True\n', seen)
        self.assert_not_in('SORREL_CHILD', seen)
