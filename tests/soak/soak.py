"""Clients come and go, politely or not, while a service of 300 threads is at work.

usage: morvik-python tests/soak/soak.py [SECONDS [SEED]]

The service (service.py) runs once alone, and then under the debug server for SECONDS: 20, or 1800
with MORVIK_TEST_LONG set.  All the while clients attach, stop it at breakpoints, look at it, step,
pause and let it go on; they leave by disconnecting, by dying of signal 9, or by closing the
connection, at whatever moment.  Every round has to have the result that it has alone; no thread may
be lost, nothing be written to standard error, and references and memory stay where they are.
"""

import os
import random
import re
import select
import signal
import sys
import time
import traceback

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), 'python'))

import dap_session
import harness

SERVICE = os.path.join(HERE, 'service.py')
THREADS = 300
IS_LONG = bool(os.environ.get('MORVIK_TEST_LONG'))
SECONDS = 1800 if IS_LONG else 20
# The longest that a round may take, however busy the machine is.
ROUND_PATIENCE = 400
# How long a client may live.
CLIENT_SECONDS = 6.0
# What may have come to stay since the first rest: caches of the host, and the memory's own holes.
MORE_REFERENCES = 3000
# The sanitizers keep what is given back, up to a limit of their own.
MORE_KILOBYTES = 400000 if harness.is_sanitized() else 30000
_ROUND = re.compile(r'round (\d+): (\d+) answers, sum (\d+), (\d+) threads left, (\d+) references')
# How long a step may take.
_STEP_SECONDS = 3.0
# How much is shown of what a client was told before it failed.
_SHOWN = 4000
# Lines to stop at, by the comments on them.
MARKS = ('# line', '# locked', '# caught')


class Failure(Exception):
    """The text says what went wrong."""


class Service(object):
    """The service as it runs, and what it has said."""

    def __init__(self, process):
        self._process = process
        self._held = {process.stdout: '', process.stderr: ''}
        self.rounds = []

    def watch(self, seconds):
        """Takes in what it says for so long."""
        end = time.time() + seconds
        while True:
            left = end - time.time()
            readable = select.select(list(self._held), [], [], max(0, left))[0]
            for stream in readable:
                self._read(stream)
            if self._process.poll() is not None:
                raise Failure('it has ended: %s' % self._process.returncode)
            if left <= 0:
                return

    def next_round(self):
        """Waits for the line of a round."""
        count = len(self.rounds)
        end = time.time() + ROUND_PATIENCE
        while len(self.rounds) == count:
            if time.time() > end:
                raise Failure('no round within %d seconds after round %d' % (
                    ROUND_PATIENCE, count - 1))
            self.watch(0.05)
        return self.rounds[-1]

    def end(self):
        """Has it end; all that it has said has been taken in then."""
        self._process.stdin.write('\n')
        self._process.stdin.flush()
        end = time.time() + ROUND_PATIENCE
        while self._held and time.time() < end:
            for stream in select.select(list(self._held), [], [], 1)[0]:
                self._read(stream)
        if self._held or self._process.wait() != 0:
            raise Failure('it has not ended as it should: %s' % self._process.poll())

    def kilobytes(self):
        status = open('/proc/%d/status' % self._process.pid).read()
        return int(re.search(r'VmRSS:\s*(\d+)', status).group(1))

    def _read(self, stream):
        data = os.read(stream.fileno(), 65536)
        if not data:
            del self._held[stream]
            return
        self._held[stream] += data
        lines = self._held[stream].split('\n')
        self._held[stream] = lines.pop()
        for line in lines:
            found = _ROUND.match(line)
            if found:
                self.rounds.append([int(part) for part in found.groups()])
            elif line != 'over' and not line.endswith(' refs]'):
                raise Failure('it says: %s\n%s' % (line, '\n'.join(lines)))


def results_alone():
    """([answers, sum, threads left] of each seed's round, the references that a round leaves).

    What the host's reload() leaves behind is none of the debugger's.
    """
    process = dap_session.Process([SERVICE, str(THREADS)], stderr=dap_session.subprocess.PIPE)
    try:
        service = Service(process.process)
        while len(service.rounds) < 20:
            service.next_round()
        service.end()
    finally:
        process.close()
    references = [round[4] for round in service.rounds]
    return ([round[1:4] for round in service.rounds[:20]],
            max(0, (references[19] - references[4]) / 15))


def check(service, expected):
    for number, answers, total, left, _ in service.rounds:
        if [answers, total, left] != expected[number % len(expected)]:
            raise Failure('round %d: %r instead of %r' % (
                number, [answers, total, left], expected[number % len(expected)]))


class Clients(object):
    """One at a time, each in a process of its own, which can be killed."""

    def __init__(self, program, random):
        self._program = program
        self._random = random
        self.kinds = {}

    def run_one(self):
        """Returns when the client is gone."""
        kind = self._random.choice(('disconnect', 'disconnect', 'close', 'kill', 'kill'))
        seed = self._random.random()
        life = self._random.random() ** 3 * CLIENT_SECONDS
        child = os.fork()
        if child == 0:
            self._live(kind, random.Random(seed), time.time() + life)
        status = _wait(child, life if kind == 'kill' else dap_session.PATIENCE + CLIENT_SECONDS)
        if status is None:
            os.kill(child, signal.SIGKILL)
            os.waitpid(child, 0)
            if kind != 'kill':
                raise Failure('a client was not answered (seed %r)' % seed)
        elif status != 0:
            raise Failure('a client has failed: status %d (seed %r)' % (status, seed))
        self.kinds[kind] = self.kinds.get(kind, 0) + 1

    def _live(self, kind, random, end):
        """In the child process."""
        status = 1
        try:
            client = dap_session.Client(self._program.port, self._program.token)
            try:
                self._use(client, random, end)
                if kind == 'disconnect':
                    client.ask('disconnect')
                status = 0
            except dap_session.Refusal, refusal:
                # The last one is still on its way out.
                status = 0 if 'busy' in refusal.args[0] else 1
                if status:
                    sys.stderr.write('refused: %s\n' % refusal.args[0])
            except:
                sys.stderr.write(traceback.format_exc()[:_SHOWN] + '...\n')
        finally:
            os._exit(status)

    def _use(self, client, random, end):
        client.begin({'justMyCode': random.random() < 0.5,
                      'stopAllThreads': random.random() < 0.7})
        marks = [mark for mark in MARKS if random.random() < 0.6]
        client.ask('setBreakpoints', source={'path': SERVICE}, breakpoints=[
            {'line': self._program.line(mark), 'condition': 'seed > 0' if mark == '# caught'
             else None} for mark in marks])
        client.ask('setExceptionBreakpoints', filters=random.choice(([], ['uncaught'])))
        client.ask('configurationDone')
        while time.time() < end:
            if not marks or random.random() < 0.3:
                time.sleep(min(0.2, max(0, end - time.time())))
                client.ask('pause', threadId=client.ask('threads')['threads'][0]['id'])
            client.stopped()
            is_stopped = True
            for _ in range(random.randrange(4)):
                if is_stopped:
                    is_stopped = random.choice((_evaluate, _look, _ask_for_threads, _step))(
                        client, random)
            if is_stopped:
                client.go()


# What a client does with a stopped thread; each returns whether it is stopped again, or still.

def _evaluate(client, random):
    client.evaluate('locals()')
    return True


def _look(client, random):
    # A module that is being loaded again has global variables alone.
    scopes = client.ask('scopes', frameId=client.top()['id'])['scopes']
    client.variables(scopes[0]['variablesReference'])
    return True


def _ask_for_threads(client, random):
    client.ask('threads')
    return True


def _step(client, random):
    """The step may lead to the thread's end, and stop nowhere."""
    client.go(random.choice(('next', 'stepIn', 'stepOut')))
    end = time.time() + _STEP_SECONDS
    while not [message for message in client.messages if message.get('event') == 'stopped']:
        try:
            client._read(end)
        except AssertionError:
            return False
    client.stopped()
    return True


def _wait(child, seconds):
    """The status of a child process, or None when it has not ended by then."""
    end = time.time() + seconds
    while True:
        pid, status = os.waitpid(child, os.WNOHANG)
        if pid:
            return status
        if time.time() >= end:
            return None
        time.sleep(0.01)


def soak(seconds, seed):
    expected, more_each_round = results_alone()
    program = dap_session.Program(SERVICE, args=[str(THREADS)])
    service = Service(program.process)
    clients = Clients(program, random.Random(seed))
    try:
        end = time.time() + seconds
        rests = []
        while time.time() < end:
            rest = time.time() + max(10.0, seconds / 20.0)
            while time.time() < min(rest, end):
                clients.run_one()
                service.watch(0)
            # What is level is seen when nobody watches: the second round is all its own.
            service.next_round()
            number, _, _, _, references = service.next_round()
            rests.append((references - number * more_each_round, service.kilobytes()))
        check(service, expected)
        service.end()
        check(service, expected)
    finally:
        program.close()
    print '%d rounds of %d threads; %s' % (
        len(service.rounds), THREADS,
        ', '.join('%d clients that %s' % (count, kind)
                  for kind, count in sorted(clients.kinds.items())))
    print 'references and kB at rest: %s' % ' '.join('%d/%d' % rest for rest in rests)
    # The first client makes what stays for all.
    for first, last, more in zip(rests[len(rests) // 3], rests[-1],
                                 (MORE_REFERENCES, MORE_KILOBYTES)):
        if last > first + more:
            raise Failure('references or memory have grown')


def main(arguments):
    seconds = int(arguments[0]) if arguments else SECONDS
    seed = int(arguments[1]) if len(arguments) > 1 else int(time.time())
    try:
        soak(seconds, seed)
    except Failure, failure:
        print 'failed (seed %d): %s' % (seed, failure)
        return 1
    return 0


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
