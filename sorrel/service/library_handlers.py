"""Where the standard library catches what the program does not, and prints it."""

# Functions by the names of their modules and their own.
_PLACES = frozenset((
    ('atexit', '_run_exitfuncs'),
    ('SocketServer', '_handle_request_noblock'),
    ('SocketServer', 'process_request_thread'),
    ('wsgiref.handlers', 'run'),
    ('asyncore', 'read'),
    ('asyncore', 'write'),
    ('asyncore', '_exception'),
    ('asyncore', 'readwrite'),
    ('logging', 'emit'),
    ('logging.handlers', 'emit'),
    ('unittest', 'run'),
    ('unittest.case', 'run'),
    ('code', 'runcode'),
    ('Tkinter', '__call__')))


def prints(frame, type, is_bare):
    """Whether the frame is such a place, and prints what its handler takes.

    is_bare: whether that names no types. Others print nothing but what a test has to say.
    """
    return (frame.f_globals.get('__name__'), frame.f_code.co_name) in _PLACES and (
        is_bare or issubclass(type, AssertionError))
