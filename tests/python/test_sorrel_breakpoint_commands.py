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
            'b f', 'b 7', 'commands 1', 'p x', 'up', 'p i', 'end', '', 'c', 'w', 'c', '',
            'delete 1', 'c', 'q']), '''\
(sorrel) > prog.py(2)f()
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


class FromElsewhere(sorrel_session.TestCase):

    def answers(self, *commands):
        """What is seen after each of the commands."""
        out, err, status = self.debug(LOOP, commands)
        self.assertEqual((err, status), ('', 0))
        return out.split(sorrel_session.PROMPT)[1:]

    def test_lists_stand_in_files_and_use_all_that_the_prompt_knows(self):
        self.script('''\
# What is shown of f.
alias both p x, y
break f
commands
both;; p 'then'
for n in range(2):
    print n, \\
        x

no_such
c
end
b 7
''', 'setup')
        answers = self.answers('source setup', 'b', 'condition 1 x == 2', 'c', '', 'q')
        self.assertEqual(answers[0], 'Breakpoint 1 at prog.py:2\nBreakpoint 2 at prog.py:7\n')
        self.assert_in("\tboth;; p 'then'\n\tfor n in range(2):\n\t    print n, \\\n", answers[1])
        self.assertEqual(answers[3], '''\
> prog.py(2)f()
-> y = x * 2
*** commands 1:1: NameError: name 'y' is not defined
'then'
0 2
1 2
*** commands 1:6: No such command: no_such
> prog.py(7)<module>()
-> print 'done'
''')

    def test_lists_stand_in_files_that_are_read_at_the_start(self):
        self.script('b prog.py:f, x > 1\ncommands\nsilent\np x + 60\nend\n', '.sorrelrc')
        self.assertEqual(self.answers('c', 'c', 'q'), ['62\n', '63\n', ''])

    def test_lists_stand_in_one_line(self):
        self.assertEqual(self.answers(
            'b f', 'commands 1;; silent;; p x + 5;; end;; b 7', 'b', 'c', 'q')[1:], [
                'Breakpoint 2 at prog.py:7\n', '''\
Num Type         Disp Enb   Where
1   breakpoint   keep yes   at prog.py:2
\tsilent
\tp x + 5
2   breakpoint   keep yes   at prog.py:7
''', '5\n', ''])

    def test_files_that_end_amid_a_list_change_none(self):
        self.script('commands 1\np 1\n', 'setup')
        answers = self.answers(
            'b f', 'commands;; p 2;; end', 'source setup', 'p 3', 'b', 'q')
        self.assertEqual(answers[2:4], [
            '*** setup:1: No "end": breakpoint 1 has the commands that it had\n', '3\n'])
        self.assert_in(':2\n\tp 2\n', answers[4])

    def test_the_end_of_input_amid_a_list_changes_none(self):
        out, _, status = self.debug(LOOP, ['b f', 'commands', 'p 2'])
        self.assertEqual(out.split('(com) ')[-1], '''
*** No "end": breakpoint 1 has the commands that it had
(sorrel) 
Detached: the program runs on.
done
''')
        self.assertEqual(status, 0)

    def test_files_wait_while_a_list_is_carried_out(self):
        self.script('b f, x == 1\ncommands\nsource more\nc\nend\nb 7\nc\np "last"\n', 'setup')
        self.script('p x + 40\np x + 50\n', 'more')
        self.assertEqual(self.answers('source setup', 'q')[0], '''\
Breakpoint 1 at prog.py:2
Breakpoint 2 at prog.py:7
> prog.py(2)f()
-> y = x * 2
41
51
> prog.py(7)<module>()
-> print 'done'
'last'
''')

    def test_silent_stops_show_nothing_of_what_others_show(self):
        answers = self.answers(
            'tbreak 3, x == 0', 'c', 'display y', 'sticky', 'b 3, x == 1',
            'commands;; silent;; p "here";; end', 'c', 'n', 'q')
        self.assertEqual(answers[6], "'here'\n")
        self.assert_in('  3  ->\t    return y\n', answers[7])
        self.assert_in('display y: 2  [old: 0]\n', answers[7])

    def test_a_count_of_steps_ends_where_a_list_is_to_be_carried_out(self):
        answers = self.answers('tbreak 5', 'c', 'b f, x == 1', 'commands;; silent;; p x;; end',
                               'next 9', 'w 1', 'q')
        self.assertEqual(answers[4], '1\n')


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
            'commands 2', 'for n in range(2):', '    print n', '', 'w;; c', 'end',
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
commands $bpnum
for n in range(2):
    print n

w;; c
end
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
	for n in range(2):
	    print n
	
	w;; c
3   logpoint     keep yes   at prog.py:3
	logs y is {y}
	stop only if y > 2
4   breakpoint   keep yes   pending other.g
	ignore next 2 hits
''')

    def test_functions_are_saved_by_their_names_in_their_files(self):
        self.script('class C(object):\n    def m(self):\n        return 1\n', 'beside.py')
        self.debug('import beside\nhere = beside.C()\nhere.m()\n', [
            'n', 'n', 'b here.m', 'b beside.C.m', 'save breakpoints saved', 'q'])
        self.assertEqual(self.clean(open(os.path.join(self.folder, 'saved')).read()),
                         'break beside.py:C.m\n' * 2)

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
