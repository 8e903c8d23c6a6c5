"""What the tests of template engines share: programs that render templates, in the terminal."""

import os
import subprocess
import sys

import harness
import sorrel_session

_HERE = os.path.dirname(os.path.abspath(__file__))
# Where ./morvik setup has put the packages of 2.7.
PACKAGES = os.path.join(
    os.path.dirname(os.path.dirname(_HERE)), '.deps', 'programs', 'usr', 'lib', 'python2.7',
    'dist-packages')


def engine_path(module):
    """Folders for PYTHONPATH with which the host can import an engine; None where it cannot."""
    for path in [], [PACKAGES] * (sys.version_info[:2] == (2, 7)):
        process = subprocess.Popen(
            [harness.launcher(), '-c', 'import ' + module], env=_environment(path),
            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        process.communicate()
        if process.returncode == 0:
            return path
    return None


def _environment(path):
    known = os.environ.get('PYTHONPATH', '').split(os.pathsep)
    return dict(os.environ, PYTHONPATH=os.pathsep.join(path + known))


class TestCase(sorrel_session.TestCase):
    """path: what engine_path() has found."""

    path = []

    def persons_environment(self):
        return dict(_environment(self.path), HOME=self.folder)

    def render(self, program, commands, **templates):
        """What the terminal says to each command while the program renders.

        templates: texts by the first parts of their names, which end in ".html".
        """
        for name in templates:
            self.script(templates[name], name + '.html')
        out, err, self.status = self.debug(program, commands)
        self.assertEqual(err, '')
        answers = out.split(sorrel_session.PROMPT)[1:]
        # The rest, at the end of the input, is no answer.
        return answers[:len(commands)]

    def places(self, program, commands, **templates):
        """Where each command has led to, such as "page:4"; what was said in one line otherwise."""
        return [place(said) for said in self.render(program, commands, **templates)]


def place(said):
    for line in said.splitlines():
        if line.startswith('> '):
            path, _, rest = line[2:].partition('(')
            return '%s:%s' % (os.path.basename(path).replace('.html', ''), rest.partition(')')[0])
    return ' '.join(said.split())


def stack(said):
    """The places of a stack as `where` shows it, those of Python files left out."""
    found = []
    for line in said.splitlines():
        if line[:2] in ('> ', '  ') and '(' in line:
            shown = place('> ' + line[2:])
            if '.py:' not in shown:
                found.append(shown)
    return found
