"""Other threads and loaded modules in the terminal."""

import re

import sorrel_session

WAITING = '''\
import threading

def wait(name):
    word = name
    started.set()
    gate.acquire()
    print word, 'went on'

started = threading.Event()
gate = threading.Lock()
gate.acquire()
other = threading.Thread(target=wait, args=('nobody',), name='other')
other.start()
while (6, 'wait') not in [(f.f_lineno, f.f_code.co_name)
                          for f in threading._sys._current_frames().values()]: pass
while sum(1 for _ in 'x'):
    if started:
        break
gate.release()
other.join()
'''


class OtherThreads(sorrel_session.TestCase):

    def answers(self, commands):
        out, err, _ = self.debug(WAITING, commands)
        self.assertEqual(err, '')
        return out.split(sorrel_session.PROMPT)[1:]

    def test_another_threads_stack_is_looked_at_and_its_variables_changed(self):
        answers = self.answers([
            'tbreak 19', 'c', 'threads', 'thread 2', 'p word', "word = 'somebody'", 'threads',
            'up', 'where', 'thread', 'p word', 'c'])
        self.assertEqual(answers[2], '''\
* 1  MainThread  stopped  prog.py(19)<module>()
  2  other  running  prog.py(6)wait()
''')
        self.assertEqual(answers[3], '> prog.py(6)wait()\n-> gate.acquire()\n')
        self.assertEqual(answers[4], "'nobody'\n")
        self.assertEqual(answers[6], '''\
  1  MainThread  stopped  prog.py(19)<module>()
* 2  other  running  prog.py(6)wait()
''')
        self.assertEqual(re.findall(r'^(..).*\W(\w+)\(\)$', answers[8], re.M), [
            ('> ', 'run'), ('  ', 'wait'), ('->', 'acquire')])
        self.assertEqual(answers[9], '> prog.py(19)<module>()\n-> gate.release()\n')
        self.assertEqual(answers[10], "*** NameError: name 'word' is not defined\n")
        self.assertEqual(answers[11], '''\
somebody went on
The program ended with exit status 0.
''')

    def test_steps_are_those_of_the_thread_that_has_stopped(self):
        answers = self.answers(['tbreak 17', 'c', 'thread 2', 'n', 'thread 2', 'unt', 'c'])
        self.assertEqual(answers[3], '> prog.py(18)<module>()\n-> break\n')
        self.assertEqual(answers[5], '> prog.py(19)<module>()\n-> gate.release()\n')

    def test_a_thread_that_there_is_not(self):
        answers = self.answers(['thread 7', 'thread 1', 'thread', 'c'])
        self.assertEqual(answers[0], '*** No thread 7\n')
        self.assertEqual(answers[1:3], ['> prog.py(1)<module>()\n-> import threading\n'] * 2)


class Modules(sorrel_session.TestCase):

    def test_new_and_reloaded_modules_are_listed_once(self):
        self.script('x = 1\n', 'one.py')
        self.script('import one\n', 'two.py')
        self.assert_session('''\
import one
import two
reload(one)
import one
print one.x
''', '''
    > prog.py(1)<module>()
    -> import one
    (sorrel) modules
    new       prog.py
    (sorrel) n
    > prog.py(2)<module>()
    -> import two
    (sorrel) modules
    new       one.py
    (sorrel) n
    > prog.py(3)<module>()
    -> reload(one)
    (sorrel) n
    > prog.py(4)<module>()
    -> import one
    (sorrel) modules
    new       two.py
    reloaded  one.py
    (sorrel) modules
    (sorrel) n
    > prog.py(5)<module>()
    -> print one.x
    (sorrel) modules
    (sorrel) c
    1
    The program ended with exit status 0.
    ''')

    def test_a_module_that_the_debugger_has_loaded_is_not_new(self):
        out, _, _ = self.debug('import cmd\nreload(cmd)\n', ['n', 'n', 'modules', 'c'])
        new, reloaded = out.split(sorrel_session.PROMPT)[3].splitlines()
        self.assertEqual(new, 'new       prog.py')
        self.assertEqual(re.sub(r' /.*/', ' ', reloaded), 'reloaded  cmd.py')
