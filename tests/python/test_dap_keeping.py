"""What the program lets go of goes at once, as without the debugger: nothing of it is kept."""

import dap_session

# Each call of work() has objects of its own, which are to be gone when it has returned.
PROGRAM = '''
import gc, sys, threading, time, weakref
gc.disable()
class Thing(object):
    def __init__(self):
        things.append(weakref.ref(self))
def work(seconds):
    thing = Thing()
    end = time.time() + seconds
    while time.time() < end and not over:
        inner(thing)
    return 'done'
def inner(thing):
    held = Thing()
    time.sleep(0.001)
    return held  # inner
def catch():
    try:
        raise KeyError(Thing())
    except KeyError:
        pass
    sys.exc_clear()
    return 'caught'
def left():
    return [ref() for ref in things if ref() is not None]
def turn(function, *arguments):
    del things[:]
    function(*arguments)
    print function.__name__, len(left())
def in_thread(*arguments):
    thread = threading.Thread(target=work, args=arguments)
    thread.start()
    thread.join()
things = []
over = []
%s
'''


class Keeping(dap_session.TestCase):

    def debug(self, text, *marks, **how):
        self.program = self.serve(PROGRAM % text, '--wait')
        client = self.connect(self.program)
        client.begin({})
        self.break_at(client, self.program, *marks)
        client.ask('setExceptionBreakpoints', filters=how.get('exceptions', []))
        client.ask('configurationDone')
        return client

    def ends(self, *lines):
        self.assertEqual(self.program.ended(), (''.join(line + '\n' for line in lines), 0))

    def look_at_all(self, client):
        for thread in client.ask('threads')['threads']:
            for frame in client.ask('stackTrace', threadId=thread['id'])['stackFrames']:
                for scope in client.ask('scopes', frameId=frame['id'])['scopes']:
                    for variable in client.variables(scope['variablesReference']):
                        if variable['variablesReference']:
                            client.variables(variable['variablesReference'])

    def test_while_it_runs(self):
        self.debug('turn(work, 3.2)\nturn(in_thread, 2.2)')
        self.ends('work 0', 'in_thread 0')

    def test_after_stops(self):
        for text in 'turn(work, 100)', 'turn(in_thread, 100)':
            client = self.debug(text, '# inner')
            for how in 'next', 'stepIn', 'stepOut', 'continue':
                client.stopped()
                self.look_at_all(client)
                for context in 'watch', 'repl', 'hover':
                    client.evaluate('locals().values()', context)
                client.go(how)
            client.stopped()
            self.break_at(client, self.program)
            client.evaluate('over.append(None)', 'repl')
            client.go()
            self.ends(text.split('(')[1].split(',')[0] + ' 0')

    def test_after_exceptions(self):
        client = self.debug('turn(catch)\nturn(catch)', exceptions=['raised'])
        for _ in range(2):
            self.assertEqual(client.stopped().split()[0], 'exception')
            self.look_at_all(client)
            client.go()
        self.ends('catch 0', 'catch 0')
