"""New programs that a program starts are debugged like it, each in a session of its own."""

import time

import harness
import tree_session

STARTING = '''\
import os, subprocess, sys
other = os.path.join(os.path.dirname(sys.argv[0]), 'other.py')
print subprocess.call([sys.executable, '-u', other, 'a', 'b c'])
print 'over'  # over
'''
OTHER = '''\
import sys
def work(words):
    count = len(words)  # other
    return count
sys.exit(work(sys.argv))
'''


class NewProgramsTest(tree_session.TestCase):

    def setUp(self):
        tree_session.TestCase.setUp(self)
        harness.need_interpreter_alone(self)

    def test_one_that_stops(self):
        other = self.script(OTHER, 'other.py')
        parent = self.launch_with_other(STARTING, other, 3)
        child = self.opened(self.tree.client_of_child())
        child.begin({})
        child.ask('setBreakpoints', source={'path': other}, breakpoints=[{'line': 3}])
        child.ask('configurationDone')
        self.assertEqual(child.stopped(), 'breakpoint work:3')
        self.assertEqual(child.evaluate('words[1:]'), "['a', 'b c']")
        self.assertEqual(child.evaluate("__import__('os').environ.get('SORREL_CHILD')"), 'None')
        child.go()
        self.assertEqual(child.event('exited'), {'exitCode': 3})
        self.assertEqual(self.tree.ended(), ('3\nover\n', 0))
        self.assertEqual(self.tree.errors(), '')

    def test_one_that_no_breakpoint_concerns(self):
        self.script(OTHER, 'other.py')
        self.launch(STARTING)
        self.assertEqual(self.tree.ended(), ('3\nover\n', 0))
        self.assertEqual(self.tree.errors(), '')

    def test_one_that_starts_itself_again(self):
        parent = self.launch('''\
import os, sys
if len(sys.argv) == 1:
    os.execv(sys.executable, [sys.executable, sys.argv[0], 'again'])
print 'again'  # again
''', '# again')
        child, pid = self.child('# again')
        self.assertEqual(pid, self.tree.process.pid)
        self.assertEqual(child.stopped(), 'breakpoint <module>:4')
        child.go()
        self.assertEqual(self.tree.ended(), ('again\n', 0))

    def launch_with_other(self, text, other, line, **arguments):
        self.tree = self.opened(tree_session.Tree(self.script(text, 'prog.py')))
        client = self.opened(self.tree.client)
        client.begin(arguments, 'launch')
        client.ask('setBreakpoints', source={'path': other}, breakpoints=[{'line': line}])
        client.ask('configurationDone')
        return client

    def test_those_that_are_chosen_by_name(self):
        worker = self.script(OTHER, 'worker_1.py')
        self.script(OTHER, 'other.py')
        self.tree = self.opened(tree_session.Tree(self.script(STARTING.replace(
            "'other.py')", "sys.argv[1])"), 'prog.py'), 'worker_1.py'))
        client = self.opened(self.tree.client)
        client.begin({'autoAttach': ['work*.py']}, 'launch')
        client.ask('setBreakpoints', source={'path': worker}, breakpoints=[{'line': 3}])
        client.ask('configurationDone')
        child = self.opened(self.tree.client_of_child())
        child.begin({})
        child.ask('configurationDone')
        self.assertEqual(self.tree.ended(), ('3\nover\n', 0))

    def test_those_that_are_not(self):
        for arguments in {'autoAttach': ['work*.py']}, {'autoAttach': []}, {'subProcess': False}:
            other = self.script(OTHER, 'other.py')
            self.launch_with_other(STARTING, other, 3, **arguments)
            self.assertEqual(self.tree.ended(), ('3\nover\n', 0))
            self.assertTrue(self.tree.nobody_comes())

    def test_one_that_stops_late_is_told_of_late(self):
        other = self.script('''\
import os, sys, time
print 'runs'
while not os.path.exists(sys.argv[0] + '.over'):
    time.sleep(0.01)
over = 1
''', 'other.py')
        self.launch_with_other(STARTING, other, 5, lazySubProcess=True)
        self.tree.wrote('runs\n')
        time.sleep(2.5)
        self.assertTrue(self.tree.nobody_comes())
        open(other + '.over', 'w').close()
        child = self.opened(self.tree.client_of_child())
        child.begin({})
        child.ask('setBreakpoints', source={'path': other}, breakpoints=[{'line': 5}])
        child.ask('configurationDone')
        self.assertEqual(child.stopped(), 'breakpoint <module>:5')
        child.go()
        self.assertEqual(self.tree.ended(), ('runs\n0\nover\n', 0))

    def test_those_that_a_shell_starts(self):
        other = self.script(OTHER, 'other.py')
        for way in ('os.system(command) >> 8', 'os.popen(command).close() >> 8',
                    'subprocess.call(command, shell=True)'):
            self.launch_with_other("""\
import os, subprocess, sys
command = 'true && %%s -u %%s a "b c"' %% (sys.executable, sys.argv[0].replace('prog', 'other'))
print %s
""" % way, other, 3)
            child = self.opened(self.tree.client_of_child())
            child.begin({})
            child.ask('setBreakpoints', source={'path': other}, breakpoints=[{'line': 3}])
            child.ask('configurationDone')
            self.assertEqual(child.stopped(), 'breakpoint work:3')
            self.assertEqual(child.evaluate('words[1:]'), "['a', 'b c']")
            child.go()
            self.assertEqual(self.tree.ended(), ('3\n', 0))
            self.assertEqual(self.tree.errors(), '')
