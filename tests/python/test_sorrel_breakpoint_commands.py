"""What breakpoints in the terminal do besides stopping: commands, log messages; saving them."""

import os

import sorrel_session

LOOP = '''\
def f(x):
    y = x * 2
    return y

for i in range(4):
    f(i)
print 'done'
'''


class Lists(sorrel_session.TestCase):

    def stops(self, text, commands):
        """What is shown from the command after the last "end" on."""
        out, err, status = self.debug(text, commands)
        self.assertEqual((err, status), ('', 0))
        return out.rpartition('(com) ')[2].partition(sorrel_session.PROMPT)[2]

    def test_commands_are_carried_out_at_each_stop(self):
        self.assertEqual(self.stops(LOOP, [
            'b f', 'b 7', 'commands 1', 'p x', 'up', 'p i', 'end', 'c', 'w', 'c', '', 'delete 1',
            'c', 'q']), '''\
> prog.py(2)f()
-> y = x * 2
0
> prog.py(6)<module>()
-> f(i)
0
(sorrel) > prog.py(6)<module>()
-> f(i)
  prog.py(2)f()
-> y = x * 2
(sorrel) > prog.py(2)f()
-> y = x * 2
1
> prog.py(6)<module>()
-> f(i)
1
(sorrel) > prog.py(2)f()
-> y = x * 2
2
> prog.py(6)<module>()
-> f(i)
2
(sorrel) Deleted breakpoint 1
(sorrel) > prog.py(7)<module>()
-> print 'done'
(sorrel) ''')

    def test_silent_ones_that_go_on(self):
        self.assertEqual(self.stops(LOOP, [
            'b f, x > 1', 'commands', 'silent', 'print x', 'y = 3', 'c', 'p 5', 'end', 'c']),
            '''\
2
3
done
The program ended with exit status 0.
''')

    def test_the_list_shows_them_and_an_empty_one_is_none(self):
        out = self.debug(LOOP, [
            'tbreak f', 'commands 1', 'p x ', 'end', 'b', 'commands 1', 'end', 'b', 'commands 7',
            'commands x', 'q'])[0]
        self.assertEqual(out.replace('(com) ', '').split(sorrel_session.PROMPT)[3:], [
            '''\
Num Type         Disp Enb   Where
1   breakpoint   del  yes   at prog.py:2
	p x
''', '', '''\
Num Type         Disp Enb   Where
1   breakpoint   del  yes   at prog.py:2
''', '*** No breakpoint 7\n', '*** No breakpoint x\n', ''])

    def test_a_temporary_ones_are_carried_out_too(self):
        self.assertEqual(self.stops(LOOP, [
            'tbreak f', 'commands', 'p x + 5', 'end', 'c', 'q']), '''\
Deleted breakpoint 1
> prog.py(2)f()
-> y = x * 2
5
(sorrel) ''')

    def test_only_where_the_program_stops_at_it(self):
        self.assertEqual(self.stops(LOOP, [
            'b 2, x == 7', 'commands', 'p "no"', 'end', 'b 2', 'ignore 2 1', 'commands 2',
            'p "yes"', 'end', 'b f', 'disable 3', 'commands 3', 'p "no"', 'end', 'c',
            'r', 'q']),
            '''\
> prog.py(2)f()
-> y = x * 2
'yes'
(sorrel) --Return--
> prog.py(3)f()->2
-> return y
(sorrel) ''')

    def test_statements_keep_their_names(self):
        self.assert_session('''\
commands = save = logpoint = 1
print commands
''', '''
    > prog.py(1)<module>()
    -> commands = save = logpoint = 1
    (sorrel) n
    > prog.py(2)<module>()
    -> print commands
    (sorrel) commands = 2
    (sorrel) save = 3
    (sorrel) logpoint += 1
    (sorrel) p commands, save, logpoint
    (2, 3, 2)
    (sorrel) q
    ''')


class Interrupted(sorrel_session.ScreenTestCase):

    def test_ctrl_c_drops_the_list(self):
        self.begin(LOOP, 'b f')
        self.screen.type('commands\n')
        self.screen.read_to('(com) ')
        self.screen.type('p 1\n')
        self.screen.read_to('(com) ')
        self.screen.interrupt_prompt()
        self.screen.read_to('--KeyboardInterrupt--')
        self.prompt()
        self.assert_('p 1' not in self.type('b'))

    def test_ctrl_c_ends_what_it_evaluates(self):
        self.begin(LOOP, 'b f')
        for line in 'commands', 'exec "print 7\\nwhile True: pass"', 'p x + 70', 'end':
            self.screen.type(line + '\n')
        self.screen.read_to('end\r\n')
        self.prompt()
        self.screen.type('c\n')
        self.screen.read_to('-> y = x * 2\r\n7\r\n')
        self.screen.interrupt()
        seen = self.prompt()
        self.assertEqual(seen.split('\n')[-3:], [
            '^C*** commands 1:1: KeyboardInterrupt', '70', '(sorrel) '])


class Logpoints(sorrel_session.TestCase):

    def test_they_write_and_the_program_runs_on(self):
        self.assert_session(LOOP, '''
    > prog.py(1)<module>()
    -> def f(x):
    (sorrel) logpoint f, x is {x}, {y} {"%d:" % x}
    Logpoint 1 at prog.py:2
    (sorrel) condition 1 x > 1
    (sorrel) logpoint 7, {1 / 0}
    Logpoint 2 at prog.py:7
    (sorrel) b
    Num Type         Disp Enb   Where
    1   logpoint     keep yes   at prog.py:2
    	logs x is {x}, {y} {"%d:" % x}
    	stop only if x > 1
    2   logpoint     keep yes   at prog.py:7
    	logs {1 / 0}
    (sorrel) c
    x is 2, <NameError: name 'y' is not defined> 2:
    x is 3, <NameError: name 'y' is not defined> 3:
    <ZeroDivisionError: integer division or modulo by zero>
    done
    The program ended with exit status 0.
    ''')

    def test_they_stand_beside_breakpoints_and_steps(self):
        self.assert_session(LOOP, '''
    > prog.py(1)<module>()
    -> def f(x):
    (sorrel) logpoint 2, log {x}
    Logpoint 1 at prog.py:2
    (sorrel) ignore 1 1
    Will ignore next 1 crossing of breakpoint 1.
    (sorrel) tbreak 2, x == 2
    Breakpoint 2 at prog.py:2
    (sorrel) logpoint 3, then {y}
    Logpoint 3 at prog.py:3
    (sorrel) c
    then 0
    log 1
    then 2
    log 2
    Deleted breakpoint 2
    > prog.py(2)f()
    -> y = x * 2
    (sorrel) n
    then 4
    > prog.py(3)f()
    -> return y
    (sorrel) disable 1
    (sorrel) b
    Num Type         Disp Enb   Where
    1   logpoint     keep no    at prog.py:2
    	logs log {x}
    	breakpoint already hit 3 times
    3   logpoint     keep yes   at prog.py:3
    	logs then {y}
    	breakpoint already hit 3 times
    (sorrel) c
    then 6
    done
    The program ended with exit status 0.
    ''')

    def test_what_is_no_logpoint_is_refused(self):
        self.assert_session(LOOP, '''
    > prog.py(1)<module>()
    -> def f(x):
    (sorrel) logpoint f
    *** A logpoint needs a place and a text: logpoint PLACE, TEXT
    (sorrel) logpoint nothing, x
    *** no function nothing in prog.py
    (sorrel) logpoint other.f, here
    Logpoint 1 is pending: no module other yet
    (sorrel) commands
    *** The program does not stop at logpoint 1
    (sorrel) q
    ''')


class Saving(sorrel_session.TestCase):

    def test_the_breakpoint_set_last_has_a_name(self):
        self.assert_session(LOOP, '''
    > prog.py(1)<module>()
    -> def f(x):
    (sorrel) disable $bpnum
    *** No breakpoint $bpnum
    (sorrel) b 6
    Breakpoint 1 at prog.py:6
    (sorrel) tbreak 7
    Breakpoint 2 at prog.py:7
    (sorrel) condition $bpnum i > 7
    (sorrel) disable $bpnum
    (sorrel) b
    Num Type         Disp Enb   Where
    1   breakpoint   keep yes   at prog.py:6
    2   breakpoint   del  no    at prog.py:7
    	stop only if i > 7
    (sorrel) enable 1 $bpnum
    (sorrel) clear $bpnum
    Deleted breakpoint 2
    (sorrel) q
    ''')

    def test_what_is_saved_sets_the_same(self):
        self.debug(LOOP, [
            'b f, x == 1', 'tbreak 7', 'disable 2', 'logpoint 3, y is {y}', 'condition 3 y > 2',
            'b other.g', 'ignore 4 2', 'commands 1', 'silent', 'p x', 'end',
            'save breakpoints saved', 'q'])
        saved = open(os.path.join(self.folder, 'saved')).read()
        self.assertEqual(self.clean(saved), '''\
break prog.py:f, x == 1
commands $bpnum
silent
p x
end
tbreak prog.py:7
disable $bpnum
logpoint prog.py:3, y is {y}
condition $bpnum y > 2
break other.g
ignore $bpnum 2
''')
        out = self.debug(LOOP, ['source saved', 'b', 'q'])[0]
        self.assertEqual(out.split(sorrel_session.PROMPT)[-2], '''\
Num Type         Disp Enb   Where
1   breakpoint   keep yes   at prog.py:2
	stop only if x == 1
	silent
	p x
2   breakpoint   del  no    at prog.py:7
3   logpoint     keep yes   at prog.py:3
	logs y is {y}
	stop only if y > 2
4   breakpoint   keep yes   pending other.g
	ignore next 2 hits
''')

    def test_what_is_in_no_file_is_left_out(self):
        self.assert_session('exec "def f(x):\\n    return x"\nf(1)\n', '''
    > prog.py(1)<module>()
    -> exec "def f(x):\\n    return x"
    (sorrel) n
    > prog.py(2)<module>()
    -> f(1)
    (sorrel) b f
    Breakpoint 1 at <string>:2
    (sorrel) b 2
    Breakpoint 2 at prog.py:2
    (sorrel) save breakpoints saved
    *** Breakpoint 1 is left out: its code is in no file
    Saved to saved
    (sorrel) q
    ''')
        self.assertEqual(self.clean(open(os.path.join(self.folder, 'saved')).read()),
                         'break prog.py:2\n')

    def test_a_file_that_cannot_be_written(self):
        os.mkfifo(os.path.join(self.folder, 'pipe'))
        self.assert_session(LOOP, '''
    > prog.py(1)<module>()
    -> def f(x):
    (sorrel) save breakpoints nowhere/saved
    *** cannot write nowhere/saved: No such file or directory
    (sorrel) save breakpoints .
    *** cannot write .: Is a directory
    (sorrel) save breakpoints pipe
    *** cannot write pipe: No such device or address
    (sorrel) save breakpoints saved
    Saved to saved
    (sorrel) q
    ''')
