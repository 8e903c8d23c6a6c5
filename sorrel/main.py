"""The command line: python -m sorrel.main COMMAND [OPTIONS] [--] [PROGRAM [ARGS...]]."""

import optparse
import sys

_USAGE = '''%prog terminal [--] PROGRAM [ARGS...]
       %prog serve (--listen [HOST:]PORT [--wait] | --greeting FILE) [--module] [--] PROGRAM [ARGS...]
       %prog dap
       %prog demo'''
_DESCRIPTION = '''Debugs a Python program: in the terminal; by clients of the Debug Adapter Protocol that
come to a port, or that start this as their adapter and speak to its standard input. Or plays a
session that shows how.'''
_PROGRAMLESS = ('dap', 'demo')


class _OptionParser(optparse.OptionParser):

    def error(self, message):
        self.exit(2, 'sorrel: %s\n' % message)


def _parser():
    parser = _OptionParser(prog='sorrel', usage=_USAGE, description=_DESCRIPTION)
    # What follows the program's name is the program's.
    parser.disable_interspersed_args()
    return parser


def _parse(arguments):
    parser = _parser()
    words = parser.parse_args(arguments)[1]
    if not words or words[0] not in ('terminal', 'serve', 'dap', 'demo'):
        parser.error('unknown command: %s' % words[0] if words else 'needs a command')
    command = words[0]
    if command == 'serve':
        parser.add_option('--listen', metavar='[HOST:]PORT', help='let clients connect there')
        parser.add_option('--wait', action='store_true', help='run only when one has')
        parser.add_option('--greeting', metavar='FILE', help='find the one client in FILE')
        parser.add_option('--module', action='store_true', help='PROGRAM is a module by name')
    options, words = parser.parse_args(words[1:])
    if command in _PROGRAMLESS and words:
        parser.error('unexpected argument: %s' % words[0])
    if command not in _PROGRAMLESS and not words:
        parser.error('needs a program')
    if command == 'serve':
        if (options.listen is None) == (options.greeting is None):
            parser.error('needs either --listen or --greeting')
        if options.listen is not None:
            options.listen = _address(options.listen, parser)
    return command, options, words


def _address(text, parser):
    """Host and port; only programs of this machine may connect where no host is named."""
    host, colon, port = text.rpartition(':')
    if not port.isdigit() or int(port) > 65535 or (colon and not host):
        parser.error('not [HOST:]PORT: %s' % text)
    return host.strip('[]') or '127.0.0.1', int(port)


def _debug(program, arguments):
    from sorrel import runner
    from sorrel.console import Console
    from sorrel.terminal import frontend
    terminal = frontend.over_service(Console())
    try:
        return runner.run(program, arguments, terminal.service)
    except runner.CannotRead as error:
        sys.stderr.write('sorrel: %s\n' % error)
        return 2


def _serve(options, program, arguments):
    from sorrel import runner
    from sorrel.dap import serve
    try:
        return serve.serve(program, arguments, bool(options.module), options.listen,
                           bool(options.wait), options.greeting)
    except (runner.CannotRead, serve.CannotServe) as error:
        sys.stderr.write('sorrel: %s\n' % error)
        return 2


def main(arguments):
    command, options, words = _parse(arguments)
    if command == 'demo':
        from sorrel import demo
        return demo.play()
    if command == 'dap':
        from sorrel.dap import adapter
        return adapter.run()
    if command == 'serve':
        return _serve(options, words[0], words[1:])
    return _debug(words[0], words[1:])


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
