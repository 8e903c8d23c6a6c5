"""Programs that were started without a debugger, and are attached to by their process."""

import os
import subprocess

import dap_session

# Works until its file is gone, and finds out whether one turn was like the other.
WORK = '''
import os, sys
def step(total, turn):
    return (total * 31 + turn) % 1000003  # work
def work():
    total = 0
    for turn in range(1000):
        total = step(total, turn)
    return total
results = [work()]
print 'ready'
sys.stdout.flush()
while os.path.exists(sys.argv[1]):
    results.append(work())
print 'over', len(set(results))
'''

class Unaware(dap_session.Process):
    """A program that was started without a debugger."""

    def __init__(self, path, arguments=(), **streams):
        self.path = path
        own = os.environ.pop('PYTHONPATH', None)
        try:
            dap_session.Process.__init__(self, [path] + list(arguments), **streams)
        finally:
            if own is not None:
                os.environ['PYTHONPATH'] = own

    line = dap_session.Program.line.im_func

    @property
    def pid(self):
        return self.process.pid


class TestCase(dap_session.TestCase):

    def setUp(self):
        dap_session.TestCase.setUp(self)
        self.flag = self.script('', 'flag')

    def run_unaware(self, text, *arguments, **streams):
        program = self.opened(Unaware(self.script(text, 'prog.py'), arguments, **streams))
        program.wrote('ready')
        return program

    def adapter(self):
        return self.opened(dap_session.Adapter(stderr=subprocess.PIPE))

    def attach_to(self, program, *marks, **arguments):
        """A client whose breakpoints are on the lines with these marks; the program runs."""
        adapter = self.adapter()
        adapter.begin(dict(arguments, processId=program.pid))
        self.break_at(adapter, program, *marks)
        adapter.ask('configurationDone')
        return adapter

    def leave(self, adapter):
        adapter.ask('disconnect')
        adapter.process.stdin.close()
        self.assertEqual(adapter.process.wait(), 0)


def state(pid):
    return open('/proc/%d/stat' % pid).read().rpartition(')')[2].split()[0]
