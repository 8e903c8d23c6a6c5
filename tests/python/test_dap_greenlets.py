"""Programs that switch between greenlets, in an editor."""

import dap_session
import greenlet_case

PROGRAM = '''
import sys
sys.path.insert(0, %r)
from greenlet import getcurrent, greenlet
def fails():
    raise KeyError('elsewhere')
def work():
    mine = 1  # work
    got = main.switch()
    mine = 2
    return mine
def turns():
    one.switch()  # turns
    try:
        fails()
    except KeyError:
        pass
    one.switch()
    done = 1
main = getcurrent()
one = greenlet(work)
turns()
'''
# As monkey patching has it.
THREADS = '''
import sys, thread, threading
sys.path.insert(0, %r)
from greenlet import getcurrent, greenlet
def start(function, args, kwargs={}):
    greenlet(lambda: function(*args, **kwargs)).switch()
    return 1
def ident():
    return id(getcurrent())
threading._active[ident()] = threading._active.pop(thread.get_ident())
thread.start_new_thread = threading._start_new_thread = start
thread.get_ident = threading._get_ident = ident
def job():
    seen = 1  # job
def begin():
    one = threading.Thread(target=job)  # begin
    one.start()
    two = 2
    return two
begin()
begin()
'''


class GreenletsTest(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        greenlet_case.need(self)

    def session(self, *marks, **filters):
        program = self.serve(PROGRAM % greenlet_case.FOLDER, '--wait')
        client = self.connect(program)
        client.begin({})
        self.break_at(client, program, *marks)
        client.ask('setExceptionBreakpoints', filters=filters.get('filters', []))
        client.ask('configurationDone')
        return client

    def test_a_step_stays_in_its_greenlet(self):
        client = self.session('# work')
        self.assertEqual(client.stopped(), 'breakpoint work:8')
        self.assertEqual(client.step(), 'step work:9')
        self.assertEqual(client.step(), 'step work:10')
        self.assertEqual(client.step('stepIn'), 'step work:11')
        self.assertEqual(client.step('stepOut'), 'step turns:19')

    def test_a_step_into_a_switch_stays_in_its_greenlet(self):
        client = self.session('# turns')
        client.stopped()
        self.assertEqual(client.step('stepIn'), 'step turns:14')

    def test_exceptions_in_other_greenlets_do_not_end_a_step(self):
        client = self.session('# work', filters=['uncaught'])
        client.stopped()
        client.step()
        self.assertEqual(client.step('stepIn'), 'step work:10')

    def test_a_stack_is_that_of_the_greenlet_that_has_stopped(self):
        client = self.session('# work')
        client.stopped()
        frames = client.ask('stackTrace', threadId=client.thread)['stackFrames']
        self.assertEqual([frame['name'] for frame in frames], ['work'])

    def test_greenlets_that_stand_in_for_threads_end_no_step(self):
        program = self.serve(THREADS % greenlet_case.FOLDER, '--wait')
        client = self.attach(program, '# begin')
        client.stopped()
        line = program.line('# begin')
        self.assertEqual([client.step(), client.step()],
                         ['step begin:%d' % (line + 1), 'step begin:%d' % (line + 2)])
        self.break_at(client, program, '# job')
        client.go()
        self.assertEqual(client.stopped(), 'breakpoint job:%d' % program.line('# job'))
        client.ask('disconnect', terminateDebuggee=False)
        self.assertEqual(program.ended(), ('', 0))
