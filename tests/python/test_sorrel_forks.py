"""Processes that a program forks, in the terminal: one at a time has the prompt."""

import os
import signal
import time

import dap_session
import harness
import sorrel_session

PROGRAM = '''\
import os, sys, time
def work(number):
    number += 1  # line 3
    return number
children = []
for number in range(2):
    child = os.fork()
    if not child:
        os._exit(work(number))
    children.append(child)
for status in [os.waitpid(child, 0)[1] for child in children]:
    print status >> 8
print 'over'
'''


class ForksTest(sorrel_session.ScreenTestCase):

    def test_children_stop_one_after_the_other(self):
        self.begin(PROGRAM, 'b 3')
        seen = self.type('c')
        self.assert_in(', prog.py]\n', seen)
        self.assert_in('> prog.py(3)work()\n', seen)
        first = self.type('p number')
        seen = self.type('c')
        self.assert_in('[process ', seen)
        second = self.type('p number')
        self.assertEqual(sorted([first.split('\n')[1], second.split('\n')[1]]), ['0', '1'])
        self.screen.type('c\n')
        out, status = self.screen.read_all()
        self.assert_in('2\nover\nThe program ended with exit status 0.\n', out)
        self.assertEqual(status, 0)
        self.assertEqual(out.count('ended'), 1)

    def test_going_over_to_another_process(self):
        self.begin(PROGRAM, 'b 3', 'c')
        both = self.listed(2)
        here = [pid for mark, pid in both if mark == '*']
        other = [pid for mark, pid in both if mark != '*']
        self.assert_in('*** No process 1 has stopped\n', self.type('process 1'))
        seen = self.type('process %s' % other[0])
        self.assert_in('[process %s, prog.py]\n> prog.py(3)work()\n' % other[0], seen)
        self.assert_in(other[0] + '\n', self.type('p os.getpid()'))
        seen = self.type('process %s' % here[0])
        self.assert_in('[process %s, prog.py]\n' % here[0], seen)
        self.type('c')
        self.screen.type('c\n')
        self.assertEqual(self.screen.read_all()[1], 0)

    def test_only_the_parent(self):
        self.assert_in('(parent)', self.begin(PROGRAM, 'b 3', 'follow parent')[1])
        self.screen.type('c\n')
        self.assert_in('1\n2\nover\nThe program ended with exit status 0.\n',
                       self.screen.read_all()[0])

    def test_only_the_child(self):
        self.begin('''\
import os, sys
if not os.fork():
    child = 1  # child
    os._exit(3)
print os.wait()[1] >> 8
parent = 1
''', 'follow child', 'b 3', 'b 6')
        self.assert_in('> prog.py(3)<module>()\n', self.type('c'))
        self.screen.type('c\n')
        self.assertEqual(self.screen.read_all(), ('c\n3\n', 0))

    def running_child(self):
        """It is in front, and the parent waits for it."""
        self.begin('''\
import os, sys, time
child = os.fork()
if not child:
    there = 1
    print 'runs'
    while True:
        time.sleep(0.01)
try:
    print os.waitpid(child, 0)[1]
except OSError:
    os.kill(child, 9)
    raise
''', 'b 4', 'c')
        self.screen.type('c\n')
        self.screen.read_to('runs')

    def test_ctrl_c_stops_the_one_in_front(self):
        self.running_child()
        self.screen.interrupt()
        self.assert_in('--Interrupted--\n', self.prompt())
        self.assert_in('0\n', self.type('p child'))
        self.screen.type('os._exit(7)\n')
        out, status = self.screen.read_all()
        self.assert_in('%d\nThe program ended with exit status 0.\n' % (7 << 8), out)

    def test_ctrl_c_that_comes_late_to_the_others(self):
        self.running_child()
        self.screen.stop()
        self.screen.interrupt()
        self.assert_in('--Interrupted--\n', self.prompt())
        self.screen.type('os._exit(7)\n')
        time.sleep(0.2)
        self.screen.send(signal.SIGCONT)
        out, status = self.screen.read_all()
        self.assert_in('%d\nThe program ended with exit status 0.\n' % (7 << 8), out)

    def test_quitting_ends_all(self):
        self.begin('''\
import os, sys, time
child = os.fork()
if not child:
    there = 1
    while True:
        time.sleep(0.01)
while not os.path.exists('over'):
    time.sleep(0.01)
here = child
here = child
time.sleep(60)
''', 'b 4', 'b 9')
        self.type('c')
        open(os.path.join(self.folder, 'over'), 'w').close()
        self.type('c')
        child = int(self.type('p child').split('\n')[1])
        self.screen.type('q\n')
        self.assertEqual(self.screen.read_all()[1], 0)
        harness.wait_until(lambda: not dap_session.is_alive(child))

    def test_a_new_program(self):
        harness.need_interpreter_alone(self)
        self.script('''\
import sys
print sys.argv[1:]
here = 1
sys.exit(4)
''', 'other.py')
        self.begin('''\
import subprocess, sys
print subprocess.call([sys.executable, 'other.py', 'a b'])
last = 1
''', 'b other.py:3', 'b 3')
        seen = self.type('c')
        self.assert_in("['a b']\n[process ", seen)
        self.assert_in(', other.py]\n> other.py(3)<module>()\n', seen)
        self.assert_in('prog.py  running\n', self.type('processes'))
        seen = self.type('c')
        self.assert_in('4\n[process ', seen)
        self.assert_in(', prog.py]\n> prog.py(3)<module>()\n', seen)
        self.screen.type('c\n')
        self.assertEqual(self.screen.read_all(),
                         ('c\nThe program ended with exit status 0.\n', 0))
