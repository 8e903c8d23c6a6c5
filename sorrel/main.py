"""The command line: python -m sorrel.main terminal [--] PROGRAM [ARGS...], or demo."""

import optparse
import sys


class _OptionParser(optparse.OptionParser):

    def error(self, message):
        self.exit(2, 'sorrel: %s\n' % message)


def _parse(arguments):
    parser = _OptionParser(
        prog='sorrel', usage='%prog terminal [--] PROGRAM [ARGS...]\n       %prog demo',
        description='Debugs a Python program in the terminal, or plays a session that shows how.')
    # What follows the program's name is the program's.
    parser.disable_interspersed_args()
    words = parser.parse_args(arguments)[1]
    if not words or words[0] not in ('terminal', 'demo'):
        parser.error('unknown command: %s' % words[0] if words else 'needs a command')
    front_end, words = words[0], parser.parse_args(words[1:])[1]
    if front_end == 'terminal' and not words:
        parser.error('needs a program')
    if front_end == 'demo' and words:
        parser.error('unexpected argument: %s' % words[0])
    return front_end, words


def _debug(program, arguments):
    from sorrel import runner
    from sorrel.console import Console
    from sorrel.service import Service
    from sorrel.terminal import Terminal
    terminal = Terminal(Console())
    terminal.service = Service(terminal)
    try:
        return runner.run(program, arguments, terminal.service)
    except runner.CannotRead as error:
        sys.stderr.write('sorrel: %s\n' % error)
        return 2


def main(arguments):
    front_end, words = _parse(arguments)
    if front_end == 'demo':
        from sorrel import demo
        return demo.play()
    return _debug(words[0], words[1:])


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
