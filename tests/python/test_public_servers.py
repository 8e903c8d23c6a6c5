"""WSGI servers of the standard library, with threads and with processes, that are debugged."""

import os
import socket
import urllib
import urllib2

import public_case

# The server's port comes first; then requests are answered. A path names what is called.
APPLICATION = '''
import os, socket, sys, threading
from SocketServer import ThreadingMixIn
from wsgiref.simple_server import WSGIRequestHandler, WSGIServer, make_server
import sorrel

def work(number):
    return number * 2  # work

def stop():
    value = 'stopped'
    sorrel.breakpoint()
    return value  # stop

def fail():
    try:
        return {}['x']  # fail
    except KeyError:
        sorrel.post_mortem()
        return 'failed'

def application(environ, start_response):
    name = environ['PATH_INFO'][1:]
    answer = str(eval(name))
    start_response('200 OK', [('Content-Type', 'text/plain'),
                              ('Content-Length', str(len(answer)))])
    return [answer]

class Quiet(WSGIRequestHandler):
    def log_message(self, *arguments):
        pass
'''
THREADED = APPLICATION + '''
class Server(ThreadingMixIn, WSGIServer):
    daemon_threads = True
%s
server = make_server('127.0.0.1', 0, application, Server, Quiet)
print 'serves %%d.' %% server.server_port
server.serve_forever()
'''
FORKING = APPLICATION + '''
%s
server = make_server('127.0.0.1', 0, application, WSGIServer, Quiet)
children = []
for _ in range(2):
    children.append(os.fork())
    if not children[-1]:
        server.serve_forever()
print 'serves %%d.' %% server.server_port
sys.stdin.readline()
for child in children:
    os.kill(child, 9)
    os.waitpid(child, 0)
print 'over'
'''
LISTEN = "sorrel.listen(('127.0.0.1', 0))"


class TestCase(public_case.TestCase):

    def serves(self, program):
        program.wrote('.')
        self.server_port = int(program.out.split()[-1][:-1])

    def url(self, call):
        return 'http://127.0.0.1:%d/%s' % (self.server_port, urllib.quote(call))

    def get(self, call):
        answer = urllib2.build_opener(urllib2.ProxyHandler({})).open(self.url(call))
        return answer.read()

    def ask(self, call):
        """A request whose answer comes later, by answered()."""
        connection = socket.create_connection(('127.0.0.1', self.server_port), 60)
        connection.sendall('GET /%s HTTP/1.0\r\n\r\n' % call)
        return connection

    def answered(self, connection):
        answer = ''
        while True:
            more = connection.recv(1000)
            if not more:
                connection.close()
                return answer.partition('\r\n\r\n')[2]
            answer += more

    def debug_requests(self, program):
        client = self.attach(program, '# work')
        request = self.ask('work(4)')
        self.assertEqual(client.stopped(), 'breakpoint work:%d' % program.line('# work'))
        self.assertEqual(client.evaluate('number'), '4')
        client.go()
        self.assertEqual(self.answered(request), '8')
        for _ in range(2):
            request = self.ask('stop()')
            self.assertEqual(client.stopped(), 'breakpoint stop:%d' % program.line('# stop'))
            self.assertEqual(client.evaluate('value'), "'stopped'")
            client.go()
            self.assertEqual(self.answered(request), 'stopped')
        request = self.ask('fail()')
        self.assertEqual(client.stopped(), 'exception fail:%d' % program.line('# fail'))
        client.go()
        self.assertEqual(self.answered(request), 'failed')
        client.ask('disconnect')
        client.read_all()
        self.assertEqual(self.get('work(3)'), '6')


class ThreadedTest(TestCase):

    def test_it_listens_from_the_beginning(self):
        program = self.begin_listening(THREADED % LISTEN)
        self.serves(program)
        self.debug_requests(program)
        self.debug_requests(program)

    def test_it_listens_by_a_request(self):
        program = self.begin(THREADED % '')
        self.serves(program)
        for _ in range(2):
            port = eval(self.get(LISTEN))[1]
            program.listens()
            self.assertEqual(program.port, port)
            self.assertEqual(eval(self.get(LISTEN))[1], port)
            self.debug_requests(program)
            self.assertEqual(self.get('sorrel.stop()'), 'None')
            self.assertEqual(self.get('sorrel.stop()'), 'None')

    def test_several_requests_stop_one_after_the_other(self):
        program = self.begin_listening(THREADED % LISTEN)
        self.serves(program)
        client = self.attach(program)
        requests = [self.ask('stop()') for _ in range(4)]
        for _ in range(4):
            self.assertEqual(client.stopped(), 'breakpoint stop:%d' % program.line('# stop'))
            client.go()
        self.assertEqual([self.answered(request) for request in requests], ['stopped'] * 4)


class ForkingTest(TestCase):

    def test_each_child_listens_for_itself(self):
        program = self.begin(FORKING % '')
        self.serves(program)
        self.assertEqual(self.get('sorrel.is_client_connected()'), 'False')
        port = eval(self.get(LISTEN))[1]
        program.listens()
        self.assertEqual(program.port, port)
        # The other one is to take no requests meanwhile.
        pid = int(self.get('os.getpid()'))
        self.assert_(pid != program.process.pid)
        self.end(program)

    def test_children_of_one_that_listens(self):
        program = self.begin_listening(FORKING.replace('range(2)', 'range(1)') % LISTEN)
        self.serves(program)
        parent = self.attach(program, '# work')
        # The child is not the parent's client's.
        self.assertEqual(self.get('work(4)'), '8')
        port, token = program.port, program.token
        eval(self.get(LISTEN))
        program.listens()
        self.assertNotEqual(program.port, port)
        self.debug_requests(program)
        self.debug_requests(program)
        self.assert_(os.path.exists(program.token_path))
        parent.ask('disconnect')
        again = self.opened(public_case.dap_session.Client(port, token))
        again.begin({})
        again.ask('disconnect')
        self.end(program)

    def end(self, program):
        program.process.stdin.write('\n')
        out, status = program.ended()
        self.assertEqual((out.splitlines()[1:], status), (['over'], 0))
        self.assertEqual(program.errors(), '')
