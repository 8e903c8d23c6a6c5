"""The text of a program that patches its modules in the way of gevent's monkey.patch_all().

What it puts there works for the program alone, and `calls` says who else has called it.
"""

PATCHED = '''
import os, select, signal, socket, sys, thread, threading, time
calls = []
def patch_all():
    ident = thread.get_ident
    main = ident()
    def patch(module, name):
        original = getattr(module, name)
        def patched(*args, **kwargs):
            caller = sys._getframe(1).f_globals.get('__name__') or ''
            if ident() != main or caller.startswith('sorrel'):
                calls.append('%s by %s' % (name, caller))
                raise SystemError('there is no greenlet to switch to')
            return original(*args, **kwargs)
        setattr(module, name, patched)
    for module, names in [
            (os, ['fork', 'waitpid']),
            (select, ['select', 'poll', 'epoll']),
            (socket, ['socket', 'create_connection', 'fromfd', 'socketpair', 'getaddrinfo']),
            (signal, ['signal', 'getsignal']),
            (thread, ['allocate_lock', 'allocate', 'get_ident', 'start_new_thread', 'start_new']),
            (threading, ['_start_new_thread', '_allocate_lock', '_get_ident', '_sleep', 'Lock',
                         'RLock', 'Condition', 'Event', 'Thread', 'currentThread']),
            (time, ['sleep'])]:
        for name in names:
            patch(module, name)
'''
