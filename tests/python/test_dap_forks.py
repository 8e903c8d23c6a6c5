"""Processes that a program forks are debugged like their parent, each in a session of its own."""

import os
import shutil
import socket
import time

import dap_session
import harness
import tree_session

FORKING = '''\
import os, sys
def work(number):
    number += 1  # child
    return number  # next
for number in range(2):
    child = os.fork()
    if not child:
        result = work(number)
        os._exit(result)
    print os.waitpid(child, 0)[1] >> 8
print 'over'  # over
'''


class ForkTest(tree_session.TestCase):

    def test_a_child_stops_where_its_parent_would(self):
        parent = self.launch(FORKING, '# child', '# over')
        for number in range(2):
            child, pid = self.child('# child')
            self.assertEqual(child.stopped(), 'breakpoint work:3')
            self.assertEqual(child.evaluate('number, os.getpid()'), repr((number, pid)))
            self.assertEqual(child.step(), 'step work:4')
            child.go()
        self.assertEqual(parent.stopped(), 'breakpoint <module>:11')
        parent.go()
        self.assertEqual(self.tree.ended(), ('1\n2\nover\n', 0))
        self.assertEqual(self.tree.errors(), '')

    def test_a_child_listens_elsewhere_where_it_has_to(self):
        temporary = os.path.join(self.folder, 'temporary')
        os.mkdir(temporary)
        os.environ['TMPDIR'] = temporary
        try:
            self.launch(FORKING, '# child')
        finally:
            del os.environ['TMPDIR']
        for _ in range(2):
            child, _ = self.child('# child')
            self.assertEqual(child.stopped(), 'breakpoint work:3')
            # As good as another user's.
            shutil.rmtree(self.tree.folder, ignore_errors=True)
            self.assertEqual(os.listdir(temporary), [])
            child.go()
        self.assertEqual(self.tree.ended(), ('1\n2\nover\n', 0))

    def test_a_step_over_the_fork_stops_in_both(self):
        parent = self.launch(FORKING, 'child = os.fork()')
        self.assertEqual(parent.stopped(), 'breakpoint <module>:6')
        parent.go('next')
        child, pid = self.child()
        self.assertEqual(child.stopped(), 'step <module>:7')
        self.assertEqual(parent.stopped(), 'step <module>:7')
        self.assertEqual(child.evaluate('child'), '0')
        self.assertEqual(parent.evaluate('child'), str(pid))
        child.go()
        parent.go()
        self.assertEqual(parent.stopped(), 'breakpoint <module>:6')
        parent.ask('disconnect', terminateDebuggee=True)

    def test_exceptions_stop_a_child(self):
        parent = self.launch("""
import os, sys
child = os.fork()
if not child:
    {}['missing']
print os.waitpid(child, 0)[1] >> 8
""", exceptions=['uncaught'])
        child, _ = self.child(exceptions=['uncaught'])
        self.assertEqual(child.stopped(), 'exception <module>:5')
        child.go()
        self.assertEqual(child.event('exited'), {'exitCode': 1})
        self.assertEqual(self.tree.ended(), ('1\n', 0))

    def test_a_child_that_runs_for_a_while_is_told_of(self):
        parent = self.launch("""
import os, sys, time
child = os.fork()
if not child:
    while not os.path.exists(sys.argv[0] + '.over'):
        time.sleep(0.01)  # loop
    os._exit(3)
print os.waitpid(child, 0)[1] >> 8
""")
        child, _ = self.child('# loop')
        self.assertEqual(child.stopped(), 'breakpoint <module>:6')
        open(self.tree.path + '.over', 'w').close()
        child.go()
        self.assertEqual(self.tree.ended(), ('3\n', 0))
        self.assertEqual(self.tree.errors(), '')

    def test_a_stopped_parent_does_not_hold_its_child_up_nor_the_other_way_round(self):
        parent = self.launch("""
import os, time
child = os.fork()
if not child:
    print 'child'  # child
    os._exit(3)
print 'parent'  # parent
print os.waitpid(child, 0)[1] >> 8  # wait
""", '# child', '# parent', '# wait')
        child, _ = self.child('# child')
        self.assertEqual(parent.stopped(), 'breakpoint <module>:7')
        self.assertEqual(child.stopped(), 'breakpoint <module>:5')
        parent.go()
        self.assertEqual(parent.stopped(), 'breakpoint <module>:8')
        child.go()
        self.tree.wrote('child\n')
        parent.go()
        self.assertEqual(self.tree.ended(), ('parent\nchild\n3\n', 0))

    def test_a_fork_in_a_thread_while_another_one_is_stopped(self):
        parent = self.launch("""
import os, threading, time
stopped = threading.Event()
def fork():
    child = os.fork()
    if not child:
        print 'child'  # child
        os._exit(3)
    print os.waitpid(child, 0)[1] >> 8
forking = threading.Thread(target=fork)
forking.start()
forking.join()
""", '# child')
        child, pid = self.child('# child')
        self.assertEqual(child.stopped(), 'breakpoint fork:7')
        threads = child.ask('threads')['threads']
        self.assertEqual(len(threads), 1, threads)
        child.go()
        self.assertEqual(self.tree.ended(), ('child\n3\n', 0))

    def test_a_grandchild(self):
        parent = self.launch("""
import os
if not os.fork():
    if not os.fork():
        print 'grandchild'  # grandchild
        os._exit(0)
    os.wait()
    os._exit(0)
os.wait()
""", '# grandchild')
        child, _ = self.child('# grandchild')
        self.assertEqual(child.stopped(), 'breakpoint <module>:5')
        child.go()
        self.assertEqual(self.tree.ended(), ('grandchild\n', 0))

    def test_children_that_are_not_wanted(self):
        parent = self.launch(FORKING, '# child', '# over', subProcess=False)
        self.assertEqual(parent.stopped(), 'breakpoint <module>:11')
        parent.go()
        self.assertEqual(self.tree.ended(), ('1\n2\nover\n', 0))


class LibraryTest(tree_session.TestCase):

    def test_a_pool_of_workers(self):
        parent = self.launch("""
import multiprocessing, os
def work(number):
    return number * number  # work
if __name__ == '__main__':
    pool = multiprocessing.Pool(2)
    print pool.map(work, range(4), 1)
    pool.close()
    pool.join()
    print 'over'  # over
""", '# work', '# over')
        children = [self.child('# work')[0] for _ in range(2)]
        seen = 0
        while seen < 4:
            for child in children:
                if child.has('stopped'):
                    self.assertEqual(child.stopped(), 'breakpoint work:4')
                    child.go()
                    seen += 1
        self.assertEqual(parent.stopped(), 'breakpoint <module>:10')
        parent.go()
        self.assertEqual(self.tree.ended(), ('[0, 1, 4, 9]\nover\n', 0))
        self.assertEqual(self.tree.errors(), '')

    def test_a_process_that_raises(self):
        parent = self.launch("""
import multiprocessing
def work():
    {}['missing']  # work
if __name__ == '__main__':
    process = multiprocessing.Process(target=work)
    process.start()
    process.join()
    print process.exitcode
""", exceptions=['uncaught', 'printed'])
        child, _ = self.child(exceptions=['uncaught', 'printed'])
        self.assertEqual(child.stopped(), 'exception work:4')
        child.go()
        self.assertEqual(self.tree.ended(), ('1\n', 0))

    def test_a_forking_server(self):
        parent = self.launch("""
import SocketServer, socket, sys, threading
class Handler(SocketServer.StreamRequestHandler):
    def handle(self):
        line = self.rfile.readline()
        self.wfile.write(line.upper())  # handle
class Server(SocketServer.ForkingMixIn, SocketServer.TCPServer):
    pass
server = Server(('127.0.0.1', 0), Handler)
print server.server_address[1]
for _ in range(3):
    server.handle_request()
""", '# handle')
        self.tree.wrote('\n')
        port = int(self.tree.out)
        for number in range(3):
            caller = socket.create_connection(('127.0.0.1', port))
            caller.sendall('hello %d\n' % number)
            child, _ = self.child('# handle')
            self.assertEqual(child.stopped(), 'breakpoint handle:6')
            self.assertEqual(child.evaluate('line'), repr('hello %d\n' % number))
            child.go()
            self.assertEqual(caller.makefile().read(), 'HELLO %d\n' % number)
            caller.close()
        self.assertEqual(self.tree.ended()[1], 0)

    def test_a_daemon(self):
        parent = self.launch("""
import os, sys, time
if os.fork():
    os._exit(0)
os.setsid()
if os.fork():
    os._exit(0)
os.chdir('/')
for number in range(64):
    try:
        os.close(number)
    except OSError:
        pass
os.open(os.devnull, os.O_RDWR)
os.dup2(0, 1)
os.dup2(0, 2)
path = sys.argv[0]
while not os.path.exists(path + '.over'):
    time.sleep(0.01)  # loop
open(path + '.gone', 'w').close()
os._exit(0)
""", '# loop')
        child, pid = self.child('# loop')
        self.assertEqual(child.stopped(), 'breakpoint <module>:19')
        self.assertEqual(child.evaluate('os.getpid()'), str(pid))
        open(self.tree.path + '.over', 'w').close()
        child.go()
        harness.wait_until(lambda: os.path.exists(self.tree.path + '.gone'))

    def test_a_pseudo_terminal(self):
        parent = self.launch("""
import os
child, terminal = os.forkpty()
if not child:
    print 'child'  # child
    os._exit(3)
print os.read(terminal, 100).strip()
print os.waitpid(child, 0)[1] >> 8
""", '# child')
        child, _ = self.child('# child')
        self.assertEqual(child.stopped(), 'breakpoint <module>:5')
        child.go()
        self.assertEqual(self.tree.ended(), ('child\n3\n', 0))

    def test_a_fork_in_an_import(self):
        self.script("""
import os
child = os.fork()
if not child:
    import beside
    inside = 1  # inside
    os._exit(3)
print os.waitpid(child, 0)[1] >> 8
""", 'forking.py')
        self.script('import colorsys\n', 'beside.py')
        parent = self.launch('import forking  # import\nprint 4\n', '# import')
        self.assertEqual(parent.stopped(), 'breakpoint <module>:1')
        inside = dict(source={'path': os.path.join(self.folder, 'forking.py')},
                      breakpoints=[{'line': 6}])
        parent.ask('setBreakpoints', **inside)
        parent.go()
        child = self.opened(self.tree.client_of_child())
        child.begin({})
        child.ask('setBreakpoints', **inside)
        child.ask('configurationDone')
        self.assertEqual(child.stopped(), 'breakpoint <module>:6')
        self.assertEqual(child.evaluate("'colorsys' in __import__('sys').modules"), 'True')
        child.go()
        self.assertEqual(self.tree.ended(), ('3\n4\n', 0))

    def test_programs_that_are_started_are_not_told_of(self):
        parent = self.launch("""
import os, subprocess
for number in range(5):
    print subprocess.call(['/bin/sh', '-c', 'exit %d' % number])
print os.system('exit 4') >> 8
""")
        self.assertEqual(self.tree.ended(), ('0\n1\n2\n3\n4\n4\n', 0))
        self.assertEqual(self.tree.errors(), '')
        self.assertTrue(self.tree.nobody_comes())

    def test_what_is_evaluated_may_fork(self):
        parent = self.launch("""
import os
x = 1  # here
os.write(1, 'over\\n')
""", '# here')
        self.assertEqual(parent.stopped(), 'breakpoint <module>:3')
        self.assertEqual(parent.evaluate(
            "os.waitpid(os.fork() or os._exit(7), 0)[1] >> 8"), '7')
        pid = int(parent.evaluate('os.fork()'))
        parent.go()
        self.assertEqual(self.tree.ended(), ('over\nover\n', 0))


class AdapterTest(dap_session.TestCase):

    def launch_daemon(self, closing=''):
        path = self.script("""
import os, time
if os.fork():
    os._exit(7)
os.setsid()
if os.fork():
    os._exit(8)
%s
end = time.time() + 0.6
while time.time() < end:
    time.sleep(0.01)
print 'here'  # here
os._exit(3)
""" % closing, 'prog.py')
        adapter = self.opened(dap_session.Adapter())
        adapter.launch(program=path)
        adapter.ask('setBreakpoints', source={'path': path}, breakpoints=[{'line': 12}])
        adapter.ask('configurationDone')
        self.assertEqual(adapter.event('exited'), {'exitCode': 7})
        stop = adapter.event('stopped')
        self.assertEqual(stop['reason'], 'breakpoint')
        adapter.thread = stop['threadId']
        self.assertEqual(adapter.evaluate('os.getppid() != %d' % adapter.process.pid), 'True')
        adapter.go()
        adapter.event('terminated')

    def test_a_daemon_stops_in_the_session_of_who_has_launched_it(self):
        self.launch_daemon()

    def test_a_daemon_that_has_closed_what_it_has_inherited(self):
        self.launch_daemon('os.closerange(3, 1024)')

    def test_disconnecting_from_a_program_that_has_just_forked(self):
        path = self.script("""
import os, time
os.waitpid(os.fork() or os._exit(0), 0)
print 'forked'
time.sleep(60)
""", 'prog.py')
        adapter = self.opened(dap_session.Adapter())
        adapter.launch(program=path)
        adapter.ask('configurationDone')
        adapter.output('forked\n')
        adapter.ask('disconnect')
        adapter.event('exited')
        adapter.event('terminated')

    def test_a_program_alone_ends_its_session_at_once(self):
        path = self.script('print 5\n', 'prog.py')
        adapter = self.opened(dap_session.Adapter())
        adapter.launch(program=path)
        adapter.ask('configurationDone')
        adapter.event('exited')
        begun = time.time()
        adapter.event('terminated')
        self.assertTrue(time.time() - begun < 1.5)
