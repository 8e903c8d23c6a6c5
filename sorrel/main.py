"""The command line: python -m sorrel.main COMMAND [OPTIONS] [--] [PROGRAM [ARGS...]]."""

import optparse
import sys

_USAGE = '''%prog terminal [--post-mortem] [--hook MODULE:NAME]... [--] PROGRAM [ARGS...]
       %prog serve (--listen PLACE [--wait] [--post-mortem] [--token-file FILE | --no-token]
             | --handshake FILE) [--module] [--hook MODULE:NAME]... [--] PROGRAM [ARGS...]
       %prog dap
       %prog demo (ledger | bills)'''
_DESCRIPTION = '''Debugs a Python program: in the terminal; by clients of the Debug Adapter Protocol that
come to a port, or that start this as their adapter and speak to its standard input. Or plays a
session that shows how.'''
_DEMOS = ('ledger', 'bills')


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
    if command in ('terminal', 'serve'):
        parser.add_option('--hook', action='append', default=[], metavar='MODULE:NAME',
                          help='call NAME for a hook that shows a sub-language')
        parser.add_option('--post-mortem', action='store_true',
                          help='stop once more when an exception has ended the program')
    if command == 'serve':
        parser.add_option('--listen', metavar='PLACE',
                          help='let clients connect to [HOST:]PORT, or to unix:PATH')
        parser.add_option('--token-file', metavar='FILE',
                          help='clients show the token in FILE, which is made if it is not there')
        parser.add_option('--no-token', action='store_true',
                          help='whoever can connect can debug the program')
        parser.add_option('--wait', action='store_true', help='run only when one has')
        parser.add_option('--handshake', metavar='FILE', help='find the one client in FILE')
        parser.add_option('--module', action='store_true', help='PROGRAM is a module by name')
    options, words = parser.parse_args(words[1:])
    if command == 'demo' and words and words[0] not in _DEMOS:
        parser.error('unknown demo: %s' % words[0])
    if not words and command != 'dap':
        parser.error('needs a %s' % ('demo' if command == 'demo' else 'program'))
    if command == 'dap' and words or command == 'demo' and len(words) > 1:
        parser.error('unexpected argument: %s' % words[-1])
    for hook in getattr(options, 'hook', ()):
        if not all(hook.partition(':')):
            parser.error('not MODULE:NAME: %s' % hook)
    if command == 'serve':
        if (options.listen is None) == (options.handshake is None):
            parser.error('needs either --listen or --handshake')
        if options.listen is not None:
            options.listen = _place(options.listen, parser)
        if (options.token_file is not None or options.no_token) and options.listen is None:
            parser.error('--token-file and --no-token go with --listen')
        if options.token_file is not None and options.no_token:
            parser.error('needs at most one of --token-file and --no-token')
    return command, options, words


def _place(text, parser):
    """Where to listen; only programs of this machine may connect where no host is named."""
    from sorrel.server.network.listening import Path, Port
    if text.startswith('unix:') and text != 'unix:':
        return Path(text[len('unix:'):])
    host, colon, port = text.rpartition(':')
    if not port.isdigit() or int(port) > 65535 or (colon and not host):
        parser.error('not [HOST:]PORT nor unix:PATH: %s' % text)
    return Port(host.strip('[]') or '127.0.0.1', int(port))


def _debug(options, program, arguments):
    from sorrel.service import runner
    from sorrel.terminal.console import Console
    from sorrel.terminal import frontend
    terminal = frontend.over_service(Console(), bool(options.post_mortem))
    try:
        script = runner.find_script(program)
        runner.prepare(script, arguments, options.hook)
        return runner.run(script, terminal.service)
    except runner.CannotRead as error:
        sys.stderr.write('sorrel: %s\n' % error)
        return 2


def _serve(options, program, arguments):
    from sorrel.service import runner
    from sorrel.server import serve
    try:
        return serve.serve(program, arguments, bool(options.module), options.listen,
                           bool(options.wait), options.handshake, options.hook,
                           options.token_file, not options.no_token, bool(options.post_mortem))
    except (runner.CannotRead, serve.CannotServe) as error:
        sys.stderr.write('sorrel: %s\n' % error)
        return 2


def main(arguments):
    command, options, words = _parse(arguments)
    if command == 'demo':
        from sorrel.terminal import demo, recordings
        return demo.play(recordings.RECORDINGS[words[0]])
    if command == 'dap':
        from sorrel.adapter import adapter
        return adapter.run()
    if command == 'serve':
        return _serve(options, words[0], words[1:])
    return _debug(options, words[0], words[1:])


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
