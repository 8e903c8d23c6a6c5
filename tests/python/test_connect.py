"""Beginning and end of the terminal over a program that listens, and what goes wrong between."""

import os
import signal
import socket

import attach_session
import connect_session
import harness

PROMPT = connect_session.PROMPT
WELCOME = connect_session.WELCOME
LOOP = '''
import os, sys
flag = sys.argv[0] + '.flag'
open(flag, 'w').close()
turn = 0
while os.access(flag, os.F_OK):
    turn += 1  # loop
print 'over'
'''
ASKED = 'Detach, and let the program run on by itself? (y or n) '


class ConnectTest(connect_session.TestCase):

    def end(self, program):
        os.unlink(program.path + '.flag')
        self.assertEqual(program.ended(), ('over\n', 0))

    def loop(self):
        program = self.serve(LOOP)
        self.assertTrue(harness.wait_until(
            lambda: os.path.exists(program.path + '.flag')))
        return program

    def test_a_session(self):
        program = self.wait_for_client('''\
def add(a, b):
    total = a + b
    return total
sum = add(1, 2)
print sum
raise SystemExit(3)
''')
        self.assert_connected(program, '''
    > prog.py(1)<module>()
    -> def add(a, b):
    (sorrel) next
    > prog.py(4)<module>()
    -> sum = add(1, 2)
    (sorrel) step
    > prog.py(2)add()
    -> total = a + b
    (sorrel) args
    a = 1
    b = 2
    (sorrel) where
      prog.py(4)<module>()
    -> sum = add(1, 2)
    > prog.py(2)add()
    -> total = a + b
    (sorrel) a = 10
    (sorrel) return
    > prog.py(4)<module>()
    -> sum = add(1, 2)
    (sorrel) retval
    12
    (sorrel) continue
    The program ended with exit status 3.
    ''')
        self.assertEqual(program.ended(), ('12\n', 3))

    def test_the_end_of_input_leaves_the_program(self):
        program = self.loop()
        for turn in range(2):
            out, errors, status = self.client(self.place(program), 'p turn > 0')
            self.assertEqual(out[:len(WELCOME)], WELCOME)
            self.assert_in(PROMPT + 'True\n', out)
            self.assertEqual(out[-30:], '\nDetached: the program runs on.\n'[-30:])
            self.assertEqual((errors, status), ('', 0))
        self.end(program)

    def test_quitting_leaves_the_program(self):
        program = self.loop()
        self.assert_in('Detached: the program runs on.\n',
                       self.client(self.place(program), 'b 7', 'c', 'quit')[0])
        self.end(program)

    def test_the_end_of_the_program_by_a_signal(self):
        program = self.loop()
        process = self.start_client(self.place(program))
        process.stdin.write('import os; os.kill(os.getpid(), 9)\n')
        out = self.finish(process, '')[0]
        self.assert_in('*** The connection is lost: it has hung up.\n', out)
        self.assertEqual(process.returncode, 1)

    def test_what_happens_to_a_client_does_nothing_to_the_program(self):
        program = self.loop()
        process = self.start_client(self.place(program))
        seen = ''
        while not seen.endswith(PROMPT):
            seen += os.read(process.stdout.fileno(), 1)
        process.send_signal(signal.SIGKILL)
        process.wait()
        self.end(program)

    def test_a_process(self):
        program = self.opened(attach_session.Unaware(self.script(LOOP, 'prog.py')))
        out, errors, status = self.client(str(program.pid), 'b 7', 'c', 'p turn > 0', 'clear 1')
        self.assertEqual((errors, status), ('', 0))
        self.assert_in('Breakpoint 1 at prog.py:7\n', out)
        self.assert_in(PROMPT + 'True\n', out)
        self.end(program)


class RefusalTest(connect_session.TestCase):

    def refused(self, place, **how):
        out, errors, status = self.client(place, **how)
        self.assertEqual((out, status), ('', 1))
        return errors

    def test_nobody_listens(self):
        listener = socket.socket()
        listener.bind(('127.0.0.1', 0))
        port = listener.getsockname()[1]
        self.assertEqual(self.client('127.0.0.1:%d' % port), (
            '', 'sorrel: cannot connect to 127.0.0.1:%d: Connection refused. No program listens '
            'there; one does that is started with: ./morvik run --listen %d PROGRAM\n' % (
                port, port), 1))

    def test_the_shorter_command_line(self):
        listener = socket.socket()
        listener.bind(('127.0.0.1', 0))
        place = '127.0.0.1:%d' % listener.getsockname()[1]
        for words, status in (['--connect', place], 1), (['--connect', place, 'prog.py'], 2), \
                (['--connect', place, '--token-file', 'no'], 1), (['--connect', 'x'], 2):
            out, errors, ended = self.call('-m', 'sorrel.__main__', *words)
            self.assertEqual((out, ended, errors.count('\n')), ('', status, 1))

    def test_no_place(self):
        for word in 'nonsense', ':5678', '1.2.3.4:port', 'host:70000', 'unix:', '-5':
            out, errors, status = self.client(word)
            self.assertEqual((out, status, errors.count('\n')), ('', 2, 1))

    def test_there_is_no_such_process(self):
        self.assertEqual(self.client('99999999'),
                         ('', 'sorrel: there is no process 99999999\n', 1))

    def test_somebody_else_is_there(self):
        program = self.serve('import time\nwhile True:\n    time.sleep(0.01)\n')
        self.attach(program)
        self.assertEqual(self.refused(self.place(program)),
                         'sorrel: another client is debugging this program\n')

    def test_a_wrong_token(self):
        program = self.serve('import time\nwhile True:\n    time.sleep(0.01)\n')
        open(program.token_path, 'w').write('a' * 20)
        self.assertEqual(
            self.refused(self.place(program)),
            'sorrel: the token is missing, or it is not the one that this program has told its '
            'user\n')

    def test_an_interrupt_on_the_way(self):
        impostor = self.opened(connect_session.Impostor())
        process = self.start_client(impostor.place)
        impostor.accept().requested('initialize')
        process.send_signal(signal.SIGINT)
        impostor.accepted.answer_to('cancel')
        self.assertEqual(self.finish(process, ''), ('', '', 1))

    def test_what_is_no_debug_server(self):
        for said in 'HTTP/1.1 400 Bad Request\r\n\r\n', 'Content-Length: 1\r\n\r\n{', \
                'Content-Length: 99999999999\r\n\r\n', 'Content-Length: 2\r\n\r\n{}':
            impostor = self.opened(connect_session.Impostor())
            process = self.start_client(impostor.place)
            impostor.accept().say(said)
            out, errors, status = self.finish(process, '')
            self.assertEqual((out, errors, status), (
                '', 'sorrel: no program that can be debugged answers at %s: it has said what is no '
                'message of the protocol\n' % impostor.place, 1))

    def test_who_hangs_up_at_once(self):
        impostor = self.opened(connect_session.Impostor())
        process = self.start_client(impostor.place)
        impostor.accept().socket.close()
        self.assertEqual(self.finish(process, ''), (
            '', 'sorrel: no program that can be debugged answers at %s: it has hung up\n' %
            impostor.place, 1))

    def test_who_says_nothing(self):
        impostor = self.opened(connect_session.Impostor())
        process = self.start_client(impostor.place, 1)
        impostor.accept()
        self.assertEqual(self.finish(process, ''), (
            '', 'sorrel: no program that can be debugged answers at %s: it has not answered '
            '"initialize" within 1 seconds\n' % impostor.place, 1))


class NonsenseTest(connect_session.TestCase):
    """What a program says that has let the client in."""

    def seen_of(self, say, commands='', patience=None):
        impostor = self.opened(connect_session.Impostor())
        process = self.start_client(impostor.place, patience)
        peer = impostor.accept()
        peer.let_in()
        say(peer)
        out, errors, status = self.finish(process, commands)
        self.assertEqual((errors, status), ('', 1))
        return out.partition('Ctrl-D leaves it.\n')[2]

    def test_events_that_make_no_sense(self):
        for body, why in (
                ({}, 'the event stopped.reason is missing'),
                ({'reason': 'step', 'threadId': 'x'},
                 'the event stopped.threadId is no whole number from 0 on')):
            self.assertEqual(
                self.seen_of(lambda peer: peer.tell('stopped', **body)),
                '*** The connection is lost: it has said what makes no sense: %s.\n' % why)

    def test_messages_of_an_unknown_kind(self):
        self.assertEqual(self.seen_of(lambda peer: peer.send({'type': 'nothing'})),
                         '*** The connection is lost: it has said what is no message of the '
                         'protocol.\n')

    def test_answers_that_make_no_sense(self):
        def say(peer):
            peer.tell('stopped', reason='step', threadId=1)
            peer.answer_to('stackTrace', stackFrames=5)
        self.assert_in('it has said what makes no sense: the answer to stackTrace.stackFrames is '
                       'no array', self.seen_of(say))

    def test_answers_that_do_not_come(self):
        impostor = self.opened(connect_session.Impostor())
        process = self.start_client(impostor.place, 1)
        peer = impostor.accept()
        peer.let_in()
        peer.tell('stopped', reason='step', threadId=1)
        out, errors, status = self.finish(process, 'p 1\n')
        self.assertEqual((out.partition('Ctrl-D leaves it.\n')[2], errors, status), (
            '*** it has not answered "stackTrace" within 1 seconds\n'
            '(sorrel) *** the thread runs no code of the program\n'
            '(sorrel) \nDetached: the program runs on.\n', '', 0))

    def test_requests_to_the_client_are_refused(self):
        def say(peer):
            seq = peer.request('startDebugging', {})
            self.assertEqual(peer.answer(seq)['success'], False)
            peer.socket.close()
        self.assertEqual(self.seen_of(say), '*** The connection is lost: it has hung up.\n')


class InterruptTest(connect_session.TestCase):

    loop, end = ConnectTest.loop.im_func, ConnectTest.end.im_func

    def test_it_breaks_into_the_program(self):
        program = self.loop()
        screen = self.open_screen(program)
        screen.read_to('\r\n' + PROMPT)
        screen.type('logpoint 7, runs\n')
        screen.read_to(PROMPT)
        screen.type('c\n')
        screen.read_to('runs')
        screen.interrupt()
        self.assert_in('--Interrupted--\n', screen.read_to(PROMPT))
        screen.type('n\n')
        self.assert_not_in('Interrupted', screen.read_to(PROMPT))
        screen.type('clear 1\n')
        screen.read_to(PROMPT)
        screen.type('q\n')
        self.assertEqual(screen.read_all(), ('q\nDetached: the program runs on.\n', 0))
        self.end(program)

    def test_at_the_prompt_it_drops_the_line(self):
        program = self.loop()
        screen = self.open_screen(program)
        screen.read_to('\r\n' + PROMPT)
        screen.type('turn = "x"')
        screen.read_to('turn = "x"')
        screen.interrupt_prompt()
        screen.read_to('--KeyboardInterrupt--\r\n' + PROMPT)
        screen.type('p turn > 0 and turn < "x"\n')
        screen.read_to('True\r\n' + PROMPT)
        screen.type('\x04')
        screen.read_to(ASKED)
        screen.type('n\n')
        screen.read_to(PROMPT)
        screen.type('\x04')
        screen.read_to(ASKED)
        screen.type('y\n')
        self.assertEqual(screen.read_all(), ('y\nDetached: the program runs on.\n', 0))
        self.end(program)

    def test_it_ends_what_is_evaluated(self):
        program = self.loop()
        screen = self.open_screen(program)
        screen.read_to('\r\n' + PROMPT)
        screen.type('open(flag + "2", "w").close(); [i for i in iter(int, 1) if i]\n')
        self.assertTrue(harness.wait_until(
            lambda: os.path.exists(program.path + '.flag2')))
        screen.interrupt()
        screen.read_to('--KeyboardInterrupt--\r\n' + PROMPT)
        screen.type('p turn > 0\n')
        screen.read_to('True\r\n' + PROMPT)
        screen.type('q\n')
        self.assertEqual(screen.read_all()[1], 0)
        self.end(program)

    def test_again_where_nothing_stops_it_asks(self):
        program = self.serve('import threading\nlock = threading.Lock()\nlock.acquire()\n'
                             'print "waits"\nlock.acquire()\n')
        program.wrote('waits')
        screen = self.open_screen(program)
        screen.read_to('Ctrl-D leaves it.\r\n')
        screen.interrupt()
        screen.read_to('whether to leave it.\r\n')
        screen.interrupt()
        screen.read_to(ASKED)
        screen.type('y\n')
        self.assert_in('Detached: the program runs on.\n', screen.read_all()[0])
