"""What the tests of page templates share: programs that render them, in the terminal."""

import os
import subprocess

import harness
import sorrel_session

STAND_INS = os.path.join(os.path.dirname(os.path.abspath(__file__)), 'stand_ins')


class TestCase(sorrel_session.TestCase):
    """With `answers(commands, ...)`: pairs of an engine and what render() has returned with it."""

    def render(self, stand_ins, program, files, commands, options=()):
        """What the terminal answers to each of the commands.

        stand_ins: their folders, none for the engine that the host can import. files: texts of
        templates by their names.
        """
        for name in files:
            self.script(files[name], name)
        self.script(program, 'prog.py')
        environment = self.persons_environment()
        path = [os.path.join(STAND_INS, name) for name in stand_ins]
        environment['PYTHONPATH'] = os.pathsep.join(path + [environment.get('PYTHONPATH', '')])
        process = self.popen(
            ['-m', 'sorrel.main', 'terminal'] + list(options) + ['--', 'prog.py'],
            env=environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE)
        out, _, _ = self.finish(process, ''.join([command + '\n' for command in commands]))
        return out.split(sorrel_session.PROMPT)[1:]

    def assert_answers(self, commands, expected, **more):
        """Where the last of the commands lead to, or what is said, as by place()."""
        for engine, said in self.answers(commands, **more):
            seen = [place(answer) for answer in said[:len(commands)]][-len(expected):]
            self.assertEqual((engine, seen), (engine, expected))

    def assert_from(self, where, commands, expected, **more):
        """The same from the first stop at a place."""
        self.assert_answers(['tbreak ' + where, 'continue'] + commands,
                            [where.partition(',')[0]] + expected, **more)


def place(said):
    """"page.pt:4" of a stop; what was said, in one line, where that is none."""
    for line in said.splitlines():
        if line.startswith('> '):
            path, _, rest = line[2:].partition('(')
            return '%s:%s' % (os.path.basename(path), rest.partition(')')[0])
    return ' '.join(said.split())


def stack(said):
    """The same of each frame."""
    return [place('> ' + line[2:]) for line in said.splitlines()
            if line[:2] in ('  ', '> ') and '(' in line]


def can_import(module):
    """Whether the host that is tested can."""
    process = subprocess.Popen([harness.launcher(), '-c', 'import ' + module],
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    process.communicate()
    return process.returncode == 0
