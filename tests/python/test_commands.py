"""What a command runs, where it starts an interpreter of Python 2."""

import os
import subprocess
import sys

import harness
from sorrel.processes import commands, executables
from sorrel.processes.commands import MODULE, SCRIPT, TEXT

EXE = '/usr/bin/python2.7'
STARTER = '/lib/child.py'
# What the words after the interpreter's name come to.
RUN = [
    # A script.
    ('a.py', [], SCRIPT, 'a.py', []),
    ('a.py -c x', [], SCRIPT, 'a.py', ['-c', 'x']),
    ('a.py -- -u', [], SCRIPT, 'a.py', ['--', '-u']),
    ('-u a.py -u', ['-u'], SCRIPT, 'a.py', ['-u']),
    ('-- a.py', [], SCRIPT, 'a.py', []),
    ('-- -a.py b', [], SCRIPT, '-a.py', ['b']),
    ('-- -m b', [], SCRIPT, '-m', ['b']),
    ('-- -- b', [], SCRIPT, '--', ['b']),
    ('-u -- a.py', ['-u'], SCRIPT, 'a.py', []),
    ('a.py ', [], SCRIPT, 'a.py', ['']),
    # Options without a value.
    ('-BEORSbdstuv a.py', ['-BEORSbdstuv'], SCRIPT, 'a.py', []),
    ('-B -d -E -O -OO -R -s -S -t -tt -u -v -b a.py',
     '-B -d -E -O -OO -R -s -S -t -tt -u -v -b'.split(), SCRIPT, 'a.py', []),
    # Options with one.
    ('-W error a.py', ['-W', 'error'], SCRIPT, 'a.py', []),
    ('-Werror a.py', ['-Werror'], SCRIPT, 'a.py', []),
    ('-uWerror a.py', ['-uWerror'], SCRIPT, 'a.py', []),
    ('-uW error a.py', ['-uW', 'error'], SCRIPT, 'a.py', []),
    ('-W -c a.py', ['-W', '-c'], SCRIPT, 'a.py', []),
    ('-W -- a.py', ['-W', '--'], SCRIPT, 'a.py', []),
    ('-W  a.py', ['-W', ''], SCRIPT, 'a.py', []),
    ('-Q new a.py', ['-Q', 'new'], SCRIPT, 'a.py', []),
    ('-Qwarnall -Qold a.py', ['-Qwarnall', '-Qold'], SCRIPT, 'a.py', []),
    # A module.
    ('-m mod', [], MODULE, 'mod', []),
    ('-mmod -u', [], MODULE, 'mod', ['-u']),
    ('-m mod -m b', [], MODULE, 'mod', ['-m', 'b']),
    ('-Sm mod a', ['-S'], MODULE, 'mod', ['a']),
    ('-uEmmod', ['-uE'], MODULE, 'mod', []),
    ('-u -m -u', ['-u'], MODULE, '-u', []),
    ('-m mod -- a', [], MODULE, 'mod', ['--', 'a']),
    # Text.
    ('-c pass', [], TEXT, 'pass', []),
    ('-cpass a', [], TEXT, 'pass', ['a']),
    ('-c  a', [], TEXT, '', ['a']),
    ('-Sc pass -x', ['-S'], TEXT, 'pass', ['-x']),
    ('-uEcpass', ['-uE'], TEXT, 'pass', []),
    ('-c - a', [], TEXT, '-', ['a']),
    ('-W ignore -c pass', ['-W', 'ignore'], TEXT, 'pass', []),
]
LEFT_ALONE = [
    '', '-', '- a', '-u', '-u -', '--', '-- -', ' a',                        # no program
    '-i a.py', '-ui a.py', '-i -c pass', '-U a.py', '-x a.py', '-ux a.py',   # not under a server
    '-3 a.py', '-B3 a.py', '-- -c b',
    '-h', '-?', '-V', '-uV a.py', '--version', '--help', '--help a.py', '-hc pass',
    '-c', '-m', '-W', '-Q', '-uc', '-Q other a.py', '-Qother a.py',          # errors
    '-J a.py', '-X a.py', '-z a.py', '-uz a.py', '--other a.py', '-1 a.py',
]


def split(text):
    return text.split(' ') if text else []


class InterpreterTest(harness.TestCase):

    def find(self, words, environment={}, is_host=lambda path, environment: True):
        return commands.find(EXE, ['py'] + words, environment, is_host)

    def test_what_is_run(self):
        for text, options, kind, what, arguments in RUN:
            self.assertEqual((text, self.find(split(text))), (
                text, commands.Command(EXE, 'py', options, kind, what, arguments)))

    def test_what_is_left_alone(self):
        for text in LEFT_ALONE:
            self.assertEqual((text, self.find(split(text))), (text, None))

    def test_the_new_words_come_to_the_same(self):
        for text, options, kind, what, arguments in RUN:
            words = commands.words_of(self.find(split(text)), STARTER)
            at = words.index(STARTER)
            self.assertEqual(words[:at], ['py'] + options)
            # The starter is a script: all that follows is its.
            self.assertEqual(self.find(words[1:])[3:], (SCRIPT, STARTER, words[at + 1:]))
            # What it is given is what an interpreter can be given.
            again = self.find(words[at + 1:])
            self.assertEqual((text, again[2:]), (text, ([], kind, what, arguments)))

    def test_the_interpreter_reads_them_alike(self):
        """Each form, with what can be found out by programs, in the interpreter that there is."""
        self.script('import sys; print sys.argv[1:]\n', 'a.py')
        self.script('import sys; print sys.argv[1:]\n', 'mod.py')
        self.script('import sys; print sys.argv[1:]\n', '-a.py')
        for text, _, kind, what, arguments in RUN:
            if what not in ('a.py', 'mod', '-a.py') or '-BEORSbdstuv' in text or '-v' in text \
                    or '-d' in text:
                continue
            process = subprocess.Popen([sys.executable] + split(text), cwd=self.folder,
                                       stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            out = process.communicate()[0]
            self.assertEqual((text, out), (text, '%r\n' % arguments))

    def test_a_prompt_at_the_end_is_left_alone(self):
        self.assertEqual(self.find(['a.py'], {'PYTHONINSPECT': '1'}), None)
        self.assertEqual(self.find(['-E', 'a.py'], {'PYTHONINSPECT': '1'}).what, 'a.py')
        self.assertEqual(self.find(['a.py', '-E'], {'PYTHONINSPECT': '1'}), None)
        self.assertEqual(self.find(['a.py'], {'PYTHONINSPECT': ''}).what, 'a.py')

    def test_another_executable_is_left_alone(self):
        asked = []

        def is_host(path, environment):
            asked.append(path)
            return False
        self.assertEqual(self.find(['a.py'], is_host=is_host), None)
        self.assertEqual(asked, [EXE])

    def test_a_command_without_words_is_left_alone(self):
        self.assertEqual(commands.find(EXE, [], {}, lambda path, environment: True), None)


class FirstLineTest(harness.TestCase):

    def executable(self, text, name='tool'):
        path = self.script(text, name)
        os.chmod(path, 0755)
        return path

    def find(self, text, argv=('ignored', 'a'), **environment):
        """(executable, name, options, script is this file, arguments) or None."""
        path = self.executable(text)
        found = commands.find(path, list(argv), environment,
                              lambda path, environment: 'python' in path)
        return found and (found.executable, found.name, found.options, found.what == path,
                          found.arguments)

    def test_interpreters(self):
        for line in ('#!/x/python\n', '#! \t/x/python \t\n', '#!/x/python', '#!/x/python\nb\0'):
            self.assertEqual((line, self.find(line)), (
                line, ('/x/python', '/x/python', [], True, ['a'])))

    def test_all_that_follows_is_one_option(self):
        self.assertEqual(self.find('#!/x/python\t-uE \n'),
                         ('/x/python', '/x/python', ['-uE'], True, ['a']))
        self.assertEqual(self.find('#!/x/python -W  error \n'),
                         ('/x/python', '/x/python', ['-W  error'], True, ['a']))
        self.assertEqual(self.find('#!/x/python -u -E\n'), None)   # There is no option "- ".

    def test_options_that_take_the_script(self):
        self.assertEqual(self.find('#!/x/python -W\n', ['n', 'b.py'])[2:], (
            ['-W', os.path.join(self.folder, 'tool')], False, []))

    def test_what_is_no_such_script(self):
        for line in ('', '#', '#!', '#! \n', '#/x/python\n', ' #!/x/python\n', '#!/x/perl\n',
                     '#!/x/\0python\n'):
            self.assertEqual((line, self.find(line)), (line, None))

    def test_long_lines(self):
        longest = commands._LONGEST_LINE
        for length, is_found in (120, True), (longest, True), (longest + 1, False), (400, False):
            line = '#!/x/python'.ljust(length, 'n')
            self.assertEqual((length, self.find(line + '\n') is not None), (length, is_found))

    def test_scripts_of_scripts(self):
        inner = self.executable('#!/x/python -u\n', 'inner')
        self.assertEqual(self.find('#!%s one\n' % inner), (
            '/x/python', '/x/python', ['-u'], False, ['one', os.path.join(self.folder, 'tool'),
                                                       'a']))
        own = os.path.join(self.folder, 'tool')
        self.assertEqual(self.find('#!%s\n' % own), None)

    def test_what_cannot_be_executed(self):
        path = self.script('#!/x/python\n', 'tool')
        self.assertEqual(commands.find(path, ['a'], {}, lambda path, environment: 'py' in path),
                         None)
        os.mkfifo(os.path.join(self.folder, 'pipe'), 0777)
        for name in 'pipe', 'missing', '':
            self.assertEqual(commands.find(os.path.join(self.folder, name), ['a'], {},
                                           lambda path, environment: False), None)

    def test_env(self):
        python = self.executable('', 'python2')
        for line in '#!/usr/bin/env python2\n', '#! /usr/bin/env  python2 \n':
            self.assertEqual(self.find(line, PATH='/nowhere:' + self.folder), (
                python, 'python2', [], True, ['a']))
        self.assertEqual(self.find('#!/usr/bin/env python2\n', PATH='/nowhere'), None)
        self.assertEqual(self.find('#!/usr/bin/env\n', PATH=self.folder), None)
        for words in ('python2 -u', '-i python2', 'A=b python2', 'A=b', '-u', '-S',
                      '-S A=b python2', '-S python2 "-u"', '-S -i python2'):
            self.assertEqual((words, self.find('#!/usr/bin/env %s\n' % words, PATH=self.folder)),
                             (words, None))

    def test_env_that_splits(self):
        python = self.executable('', 'python2')
        found = python, 'python2', ['-u', '-E'], True, ['a']
        if not executables.mentions('/usr/bin/env', 'split-string'):
            found = None
        for words in '-S python2 -u -E', '-Spython2 -u  -E':
            self.assertEqual(self.find('#!/usr/bin/env %s\n' % words, PATH=self.folder), found)


class ExecutableTest(harness.TestCase):

    def is_host(self, path, **environment):
        return executables.is_host(path, environment)

    def test_this_interpreter(self):
        self.assertEqual(self.is_host(sys.executable), True)
        self.assertEqual(self.is_host(os.readlink('/proc/self/exe')), True)

    def test_links_and_copies(self):
        for name in 'python', 'python2.7', 'python2.6-dbg', 'python2_d':
            path = os.path.join(self.folder, name)
            os.symlink(sys.executable, path)
            self.assertEqual((name, self.is_host(path)), (name, True))
        copy = os.path.join(self.folder, 'python2')
        text = open(sys.executable, 'rb').read()
        open(copy, 'wb').write(text)
        self.assertEqual(self.is_host(copy), False)     # Nobody can execute it.
        os.chmod(copy, 0755)
        self.assertEqual(self.is_host(copy), True)

    def test_a_program_with_an_interpreter_inside(self):
        path = os.path.join(self.folder, 'pythonic')
        open(path, 'wb').write(open(sys.executable, 'rb').read())
        os.chmod(path, 0755)
        self.assertEqual(self.is_host(path), False)

    def test_what_is_none(self):
        for path in '/bin/sh', '/usr/bin/python3', '/nowhere/python', self.folder, '', '\xff':
            self.assertEqual((path, self.is_host(path)), (path, False))

    def test_broken_files(self):
        text = open(sys.executable, 'rb').read()
        path = os.path.join(self.folder, 'python')
        pieces = [text[:length] for length in (0, 3, 4, 40, 64, 200, 5000, len(text) // 8)]
        for at in (4, 5, 18, 32, 54, 56, 64, 300, 600):
            pieces.append(text[:at] + '\xff' * 8 + text[at + 8:])
        results = set()
        for piece in pieces:
            if os.path.exists(path):
                os.remove(path)
            open(path, 'wb').write(piece)
            os.chmod(path, 0755)
            executables._known.clear()
            results.add(self.is_host(path))
        self.assert_in(False, results)
        self.assertEqual(results - set([True, False]), set())

    def test_files_that_are_no_files(self):
        os.mkfifo(os.path.join(self.folder, 'python'), 0777)
        self.assertEqual(self.is_host(os.path.join(self.folder, 'python')), False)

    def test_one_that_has_changed_is_looked_at_again(self):
        path = os.path.join(self.folder, 'python')
        open(path, 'wb').write('nothing')
        os.chmod(path, 0755)
        os.utime(path, (1, 1))
        self.assertEqual(self.is_host(path), False)
        open(path, 'wb').write(open(sys.executable, 'rb').read())
        self.assertEqual(self.is_host(path), True)

    def test_other_kinds(self):
        """Of the hosts that there are beside this one."""
        own = executables._EXPORTED[:], executables._NOT_EXPORTED[:]
        try:
            for exported, others in (['PyUnicodeUCS3_FromObject'], []), (own[0], ['Py_Main']):
                executables._known.clear()
                executables._EXPORTED[:], executables._NOT_EXPORTED[:] = exported, others
                self.assertEqual(self.is_host(sys.executable), False)
        finally:
            executables._EXPORTED[:], executables._NOT_EXPORTED[:] = own
