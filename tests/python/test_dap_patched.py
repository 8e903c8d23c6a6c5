"""Programs whose modules switch greenlets instead of waiting: nothing of the server's calls that."""

import os

import attach_session
import dap_session
import public_case
from patched import PATCHED

WORK = PATCHED + '''
def work(turn):
    seen = turn + 1  # work
    return seen
patch_all()
for turn in range(3):
    work(turn)
print 'calls', calls
'''
FORKS = PATCHED + '''
patch_all()
child = os.fork()
place = 'child' if not child else 'parent'  # both
if child:
    os.waitpid(child, 0)
    print 'calls', calls
else:
    sys.stdout.write('calls in child %r\\n' % calls)
    sys.stdout.flush()
    os._exit(0)
'''
LISTENS = PATCHED + '''
patch_all()
import sorrel
sorrel.listen(('127.0.0.1', 0))
sorrel.wait_for_client()
def work():
    seen = 1  # work
    return seen
work()
sorrel.stop()
print 'calls', calls
'''
RUNS = PATCHED + '''
patch_all()
print 'ready'
sys.stdout.flush()
def work(turn):
    seen = turn + 1  # work
    return seen
turn = 0
while os.path.exists(sys.argv[1]):
    turn = work(turn)
    time.sleep(0.001)
print 'calls', calls
'''


class PatchedTest(dap_session.TestCase):

    def step_and_look(self, client):
        self.assertEqual(client.stopped().split(':')[0], 'breakpoint work')
        self.assertEqual(client.step().split(':')[0], 'step work')
        self.assertEqual(client.evaluate('len([1])'), '1')
        self.assertEqual(len(client.ask('threads')['threads']), 1)
        client.ask('setBreakpoints', source={'path': client.top()['source']['path']},
                   breakpoints=[])

    def test_one_that_was_started_with_the_server(self):
        program = self.serve(WORK, '--wait')
        client = self.attach(program, '# work')
        self.step_and_look(client)
        client.go()
        self.assertEqual(program.ended(), ('calls []\n', 0))

    def test_one_that_forks(self):
        program = self.serve(FORKS, '--wait')
        client = self.attach(program, '# both')
        client.stopped()
        client.go()
        out, status = program.ended()
        self.assertEqual((sorted(out.splitlines()), status),
                         (['calls []', 'calls in child []'], 0))


class PatchedListeningTest(public_case.TestCase):

    step_and_look = PatchedTest.step_and_look.im_func

    def test_one_that_listens_afterwards(self):
        program = self.begin_listening(LISTENS)
        client = self.attach(program, '# work')
        self.step_and_look(client)
        client.go()
        self.assertEqual(program.ended(), ('calls []\n', 0))


class PatchedAttachingTest(attach_session.TestCase):

    step_and_look = PatchedTest.step_and_look.im_func

    def test_one_that_is_attached_to_by_its_process(self):
        program = self.run_unaware(RUNS, self.flag)
        adapter = self.attach_to(program, '# work')
        self.step_and_look(adapter)
        adapter.go()
        adapter.ask('disconnect')
        os.unlink(self.flag)
        program.wrote('calls []')
