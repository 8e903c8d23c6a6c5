"""The command lines.

For people: python -m sorrel [OPTIONS] [--] PROGRAM [ARGS...].
For the morvik command and for editors: python -m sorrel.main COMMAND [OPTIONS] [--] [...].
"""

from __future__ import absolute_import

import os
import sys

if sys.path[0] == '' and os.path.isabs(__file__):
    # What lies in the folder that this is started in is not for the server to import. The program's
    # folder, which it gives way to, comes to this place of the path later.
    sys.path[0] = os.path.dirname(os.__file__)

import optparse

import sorrel

_SHORT = 'debug'
# The interpreter's options that are handed on to it.
_FLAGS, _WITH_VALUE = '3BEORSbdstuv', 'QW'
_SHORT_USAGE = '''python -m sorrel [--tty DEVICE] [--no-color] [--no-templates] [--just-my-code]
             [--post-mortem] [--hook MODULE:NAME]... [--] PROGRAM [ARGS...]
       python -m sorrel --listen PLACE [--wait] [--post-mortem]
             [--token-file FILE | --no-token] [--hook MODULE:NAME]... [--] PROGRAM [ARGS...]
       and -m MODULE or -c TEXT instead of PROGRAM, and options of the interpreter's
       python -m sorrel --connect [HOST:]PORT [--token-file FILE] [--hook MODULE:NAME]... [--]
             PROGRAM [ARGS...]
       python -m sorrel --pid PID [--just-my-code]
       python -m sorrel --connect PLACE [--token-file FILE]'''
_SHORT_DESCRIPTION = '''Debugs a Python program: in the terminal, or by clients of the Debug Adapter
Protocol that come to a port, or that wait at one. Or, in the terminal, one that runs already, or
that listens. The interpreter is started anew where it is given options of its own here: -%s, -Q
and -W.''' % _FLAGS
_USAGE = '''%prog terminal [--module | --text] [--tty DEVICE] [--no-color] [--no-templates]
             [--just-my-code] [--post-mortem] [--hook MODULE:NAME]... [--] PROGRAM [ARGS...]
       %prog serve (--listen PLACE [--wait] [--post-mortem] [--token-file FILE | --no-token]
             | --connect [HOST:]PORT [--token-file FILE] | --handshake FILE)
             [--module | --text] [--hook MODULE:NAME]... [--] PROGRAM [ARGS...]
       %prog attach [--just-my-code | --handshake FILE] PID
       %prog connect [--token-file FILE] (PLACE | PID)
       %prog dap
       %prog demo (ledger | bills)'''
_DESCRIPTION = '''Debugs a Python program: in the terminal; by clients of the Debug Adapter Protocol that
come to a port, or that start this as their adapter and speak to its standard input. Or plays a
session that shows how.'''
# Said where it may be a surprise.
_INPUT_NOTE = '''Commands are read from the standard input. With --tty /dev/tty the prompt is at the
terminal, and the standard input is the program's alone.
'''
_DEMOS = ('ledger', 'bills')
# What commands are about that are about no program.
_NEEDED = {'demo': 'demo', 'attach': 'process id', 'connect': 'place'}


class _OptionParser(optparse.OptionParser):

    def error(self, message):
        _complain(message, getattr(self.values, 'handshake', None))
        self.exit(2)


def _parser(usage, description, **more):
    parser = _OptionParser(prog='sorrel', usage=usage, description=description, **more)
    # What follows the program's name is the program's.
    parser.disable_interspersed_args()
    return parser


def _add_program_options(parser):
    parser.add_option('--hook', action='append', default=[], metavar='MODULE:NAME',
                      help='call NAME for a hook that shows a sub-language')
    parser.add_option('--post-mortem', action='store_true',
                      help='stop once more when an exception has ended the program')


def _add_stepping_options(parser):
    parser.add_option('--just-my-code', action='store_true', default=False,
                      help='step through the code of libraries without a stop')


def _add_terminal_options(parser):
    parser.add_option('--tty', metavar='DEVICE', help='have the prompt at this terminal')
    parser.add_option('--no-color', action='store_true', help='show no colours')
    parser.add_option('--no-templates', action='store_true',
                      help='show the Python that templates are made into')


def _add_listen_options(parser):
    parser.add_option('--listen', metavar='PLACE',
                      help='let clients connect to [HOST:]PORT, or to unix:PATH')
    parser.add_option('--token-file', metavar='FILE',
                      help='clients show the token in FILE, which is made if it is not there')
    parser.add_option('--no-token', action='store_true',
                      help='whoever can connect can debug the program')
    parser.add_option('--wait', action='store_true', help='run only when one has')


def _add_interpreter_options(parser):
    for letter in _FLAGS + _WITH_VALUE:
        parser.add_option('-' + letter, action='callback', callback=_take_option,
                          type='string' if letter in _WITH_VALUE else None,
                          help=optparse.SUPPRESS_HELP)
    parser.set_defaults(interpreter=[])


def _add_kinds(parser):
    for letter, name, what in ('m', 'MODULE', 'a module by its name'), ('c', 'TEXT', 'this text'):
        parser.add_option('-' + letter, action='callback', callback=_take_what, type='string',
                          metavar=name, help='debug ' + what)
    parser.set_defaults(kind='')


def _take_option(option, text, value, parser):
    parser.values.interpreter.append(text + (value or ''))


def _take_what(option, text, value, parser):
    """As with the interpreter, all that follows is the program's."""
    parser.values.kind = text
    parser.largs.append(value)
    parser.largs.extend(parser.rargs)
    del parser.rargs[:]


def _parse_short(arguments):
    parser = _parser(_SHORT_USAGE, _SHORT_DESCRIPTION, version='Morvik ' + sorrel.__version__)
    _add_listen_options(parser)
    _add_program_options(parser)
    _add_terminal_options(parser)
    _add_stepping_options(parser)
    _add_interpreter_options(parser)
    _add_kinds(parser)
    parser.add_option('--pid', help='debug the program that runs in this process')
    parser.add_option('--connect', metavar='PLACE',
                      help='with a program, have it connect to the adapter that waits at '
                           '[HOST:]PORT; else debug, in the terminal, the program that listens at '
                           '[HOST:]PORT or unix:PATH')
    parser.set_defaults(handshake=None, mark=None)
    options, words = parser.parse_args(arguments)
    if options.connect is not None and not words:
        if [name for name, value in vars(options).items()
                if value and name not in ('connect', 'token_file')]:
            parser.error('--connect without a program goes with nothing but --token-file')
        return 'connect', options, [options.connect]
    if options.pid is not None:
        _check_process_id(options.pid, parser)
        if words or [name for name, value in vars(options).items()
                     if value and name not in ('pid', 'just_my_code')]:
            parser.error('--pid goes with nothing but --just-my-code')
        return 'attach', options, [options.pid]
    if not words:
        parser.error('needs a program')
    _check_hooks(options, parser)
    if options.connect is not None:
        _check_connecting(options, parser)
    if options.wait and options.listen is None:
        parser.error('--wait goes with --listen')
    for name in '--just-my-code', '--no-templates':
        if getattr(options, name[2:].replace('-', '_')) and options.listen is not None:
            parser.error('%s is for the terminal: clients say so themselves' % name)
    if options.tty is not None and options.listen is not None:
        parser.error('--tty and --listen do not go together')
    _check_listening(options, parser)
    is_served = options.listen is not None or options.connect is not None
    return 'serve' if is_served else 'terminal', options, words


def _parse(arguments):
    parser = _parser(_USAGE, _DESCRIPTION)
    words = parser.parse_args(arguments)[1]
    if not words or words[0] not in ('terminal', 'serve', 'attach', 'connect', 'dap', 'demo'):
        parser.error('unknown command: %s' % words[0] if words else 'needs a command')
    command = words[0]
    if command in ('terminal', 'serve'):
        _add_program_options(parser)
        _add_interpreter_options(parser)
        parser.add_option('--module', action='store_const', dest='kind', const='-m', default='',
                          help='PROGRAM is a module by name')
        parser.add_option('--text', action='store_const', dest='kind', const='-c',
                          help='PROGRAM is the text of one')
    if command == 'terminal':
        _add_terminal_options(parser)
    if command in ('terminal', 'attach'):
        _add_stepping_options(parser)
    if command == 'serve':
        _add_listen_options(parser)
        parser.add_option('--connect', metavar='PLACE',
                          help='connect to the adapter that waits at [HOST:]PORT')
        parser.add_option('--handshake', metavar='FILE', help='find the one client in FILE')
        # For the adapter, which reads what the program writes.
        parser.add_option('--mark', metavar='WORD', help=optparse.SUPPRESS_HELP)
    if command == 'attach':
        parser.add_option('--handshake', metavar='FILE',
                          help='let the program find the one client in FILE')
    if command == 'connect':
        parser.add_option('--token-file', metavar='FILE', help='show the token in FILE')
    options, words = parser.parse_args(words[1:])
    if command == 'demo' and words and words[0] not in _DEMOS:
        parser.error('unknown demo: %s' % words[0])
    if not words and command != 'dap':
        parser.error('needs a %s' % _NEEDED.get(command, 'program'))
    if command == 'attach':
        _check_process_id(words[0], parser)
        if options.just_my_code and options.handshake is not None:
            parser.error('--just-my-code is for the terminal: clients say so themselves')
    if command == 'dap' and words or command in ('demo', 'attach', 'connect') and len(words) > 1:
        parser.error('unexpected argument: %s' % words[-1])
    if command in ('terminal', 'serve'):
        _check_hooks(options, parser)
    if command == 'serve':
        ways = options.listen, options.connect, options.handshake
        if ways.count(None) != len(ways) - 1:
            parser.error('needs either --listen, --connect or --handshake')
        if options.connect is not None:
            _check_connecting(options, parser)
        _check_listening(options, parser)
    return command, options, words


def _check_process_id(word, parser):
    if not (word.isdigit() and int(word) < 1 << 31):
        parser.error('not a process id: %s' % word)


def _check_hooks(options, parser):
    for hook in options.hook:
        if not all(hook.partition(':')):
            parser.error('not MODULE:NAME: %s' % hook)


def _check_listening(options, parser):
    if options.listen is not None:
        options.listen = _place(options.listen, parser)
    is_reached = options.listen is not None or getattr(options, 'connect', None) is not None
    if options.token_file is not None and not is_reached or options.no_token \
            and options.listen is None:
        parser.error('--token-file and --no-token go with --listen')
    if options.token_file is not None and options.no_token:
        parser.error('needs at most one of --token-file and --no-token')


def _check_connecting(options, parser):
    """The program is to connect to an adapter."""
    for name in ('listen', 'wait', 'no_token', 'just_my_code', 'no_templates', 'post_mortem',
                 'tty'):
        if getattr(options, name, None):
            parser.error('--connect and --%s do not go together' % name.replace('_', '-'))
    options.connect = _place(options.connect, parser)
    if not hasattr(options.connect, 'number'):
        parser.error('an adapter waits at a port, not at unix:PATH')


def _place(word, parser):
    """The Port or Path that the word names."""
    from sorrel.server.network import listening
    try:
        return listening.place(word)
    except ValueError as error:
        return parser.error(str(error))


def _console(options, program):
    """Where the prompt is. Raises NoTerminal."""
    from sorrel.terminal.console import Console, CONTROLLING, NoTerminal
    if options.tty is not None:
        return Console.at(options.tty)
    if program == '-' and not options.kind:
        # The standard input holds the program's text.
        try:
            return Console.at(CONTROLLING)
        except NoTerminal:
            raise NoTerminal('the program is in the standard input, and there is no terminal to '
                             'ask at')
    console = Console.of_person(sys.stdin, sys.stdout)
    if sys.stdout.isatty() and not sys.stdin.isatty():
        console.write(_INPUT_NOTE)
    return console


def _debug(options, program, arguments):
    from sorrel.service import runner
    from sorrel.terminal.console import NoTerminal
    from sorrel.terminal import colours, frontend
    try:
        console = _console(options, program)
    except NoTerminal as error:
        sys.stderr.write('sorrel: %s\n' % error)
        return 2
    console.colours = colours.of_process(
        console.name is not None and not options.no_color and colours.are_wanted(os.environ))
    terminal = frontend.over_service(console, bool(options.post_mortem))
    terminal.service.passing.set_just_my_code(options.just_my_code)
    terminal.service.show_templates(not options.no_templates)
    try:
        script = runner.find(program, options.kind)
        runner.prepare(script, arguments, options.hook)
        # What was read of a standard input cannot be read again.
        terminal.share(os.path.basename(script.path), script.name != '-')
        return runner.run(script, terminal.service)
    except runner.CannotRead as error:
        sys.stderr.write('sorrel: %s\n' % error)
        return 2


def _serve(options, program, arguments):
    from sorrel.service import runner
    from sorrel.server import serve
    try:
        return serve.serve(program, arguments, options.kind, options.listen,
                           bool(options.wait), options.handshake, options.hook,
                           options.token_file, not options.no_token, bool(options.post_mortem),
                           options.connect, options.mark)
    except (runner.CannotRead, serve.CannotServe) as error:
        _complain(error, options.handshake)
        return 2


def _complain(why, handshake_file):
    """handshake_file: of an adapter that waits for what cannot be; None for none."""
    sys.stderr.write('sorrel: %s\n' % why)
    if handshake_file is not None:
        from sorrel.protocol import launch_handshake
        launch_handshake.refuse(handshake_file, str(why))


def _attach(pid, handshake, just_my_code):
    from sorrel.client import terminal
    from sorrel.processes import running
    try:
        if handshake is None:
            terminal.attach(pid, just_my_code)
        else:
            running.bring_server(pid, 'sorrel.server', handshake)
    except running.CannotAttach as error:
        sys.stderr.write('sorrel: %s\n' % error)
        return 1
    return 0


def _connect(place, token_file):
    from sorrel.common.decoding import text
    from sorrel.protocol.messages import Refused
    from sorrel.remote import frontend, reaching
    try:
        return frontend.RemoteTerminal(reaching.reach(place, token_file)).run()
    except Refused as error:
        sys.stderr.write('sorrel: %s\n' % text(error).encode('utf-8'))
        return 1
    except reaching.BadPlace as error:
        sys.stderr.write('sorrel: %s\n' % error)
        return 2
    except KeyboardInterrupt:
        return 1  # It was still on its way.


def _play(name):
    from sorrel.service import runner
    from sorrel.terminal import demo, recordings
    try:
        return demo.play(recordings.RECORDINGS[name])
    except runner.CannotRead as error:  # Only the checkout has the programs.
        sys.stderr.write('sorrel: %s\n' % error)
        return 2


def _complaint_of_core():
    """Why the native core cannot be used here; None when it can."""
    complaint = None
    try:
        import _sorrel
        import tmorvik26_vs2012_x64
        version = '.'.join(_sorrel.HOST_VERSION.split('.')[:2])
        if version != '%d.%d' % sys.version_info[:2]:
            complaint = 'it was built for Python %s' % version
    except ImportError as error:
        complaint = str(error)
    return complaint and 'cannot load the native core: ' + complaint


def _complaint_of_restart(options, start_words):
    """Why the interpreter cannot be given these options; None when it has them."""
    if options:
        from sorrel.processes import restart
        try:
            restart.with_options(options, start_words)
        except restart.CannotRestart as error:
            return str(error)
    return None


def _run(command, options, words, start_words):
    """start_words: as for start(), the same command line."""
    if command == 'dap':
        from sorrel.adapter import adapter
        return adapter.run()
    complaint = _complaint_of_core() or _complaint_of_restart(
        getattr(options, 'interpreter', None), start_words)
    if complaint is not None:
        _complain(complaint, getattr(options, 'handshake', None))
        return 2
    if command == 'demo':
        return _play(words[0])
    if command == 'attach':
        return _attach(int(words[0]), options.handshake, options.just_my_code)
    if command == 'connect':
        return _connect(words[0], options.token_file)
    if command == 'serve':
        return _serve(options, words[0], words[1:])
    return _debug(options, words[0], words[1:])


def main(arguments):
    return _run(*_parse(arguments) + (arguments,))


def debug(arguments):
    """The shorter command line, for people."""
    return _run(*_parse_short(arguments) + ([_SHORT] + arguments,))


def start(words):
    """Either of the two: the longer one, or what follows the word "debug"."""
    return debug(words[1:]) if words[:1] == [_SHORT] else main(words)


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
