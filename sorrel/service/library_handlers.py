"""Where the standard library or the interpreter catches what the program does not, and prints it."""


class _Place(object):
    """As the core reads it. A name "*" is any."""

    prints = True
    parent = False

    def __init__(self, mod_name, containing_class, co_name):
        self.mod_name = mod_name
        self.containing_class = containing_class
        self.co_name = co_name


# The interpreter prints what one of these does not catch, but not where the program has called it.
DESTRUCTOR = '__del__'

PLACES = [_Place(*names) for names in (
    ('sorrel.service.runner', '*', 'run'),
    ('sorrel.service.thread_hooks', 'ThreadMain', '__call__'),
    ('threading', 'Thread', '__bootstrap_inner'),
    ('atexit', '*', '_run_exitfuncs'),
    ('SocketServer', 'BaseServer', '_handle_request_noblock'),
    ('SocketServer', 'ThreadingMixIn', 'process_request_thread'),
    ('wsgiref.handlers', 'BaseHandler', 'run'),
    ('asyncore', '*', 'read'),
    ('asyncore', '*', 'write'),
    ('asyncore', '*', '_exception'),
    ('asyncore', '*', 'readwrite'),
    ('logging', '*', 'emit'),
    ('logging.handlers', '*', 'emit'),
    ('unittest', 'TestCase', 'run'),
    ('unittest.case', 'TestCase', 'run'),
    ('code', 'InteractiveInterpreter', 'runcode'),
    ('Tkinter', 'CallWrapper', '__call__'),
    ('*', '*', DESTRUCTOR))]
