"""Sends changed recordings of sessions to a program that listens, and to the adapter.

usage: ./morvik python -- tests/fuzz/transport.py [--seed N [--last M]] [--verbose]
       ./morvik python -- tests/fuzz/transport.py --record    makes the recordings anew

Every request that can be read gets one answer, unless the connection ends for a reason; who does
not show the token is shown out, with an answer; the server does not complain of itself; the program
goes on; and the next client can debug it.
"""

import glob
import json
import os
import re
import select
import shutil
import signal
import socket
import struct
import sys
import time
import traceback

import fuzzing
import dap_session
import harness

from sorrel.protocol import messages, schema

HERE = os.path.dirname(os.path.abspath(__file__))
PROGRAM = os.path.join(HERE, "debuggee.py")
CORPUS = os.path.join(HERE, "corpus")
# Stand in the recordings for the path of the program and for its token.
PLACEHOLDER = "@program"
TOKEN_PLACEHOLDER = "@token"
PATIENCE = 15
MEGABYTE = 1 << 20
# How much the program may grow over the rounds of a batch. The sanitizers keep what was freed.
GROWTH = 300 * MEGABYTE if harness.is_sanitized() else 40 * MEGABYTE

# What is evaluated can do no harm, whatever else is changed.
EXPRESSIONS = ["number", "items", "thing", "1", "1 + 1", "len(items)", "missing", "1/0", "(",
               "", "'x' * 1000", "number + 1", "[", "None", "thing.items[1]", u"u'\xe9'", "\0", " ",
               "\n", "thing.missing", "number = 3", "x" * 3000, "%", "number.", "it", "lambda: 0"]
EVALUATED = ("expression", "condition", "value", "text", "logMessage", "hitCondition")
# Requests that give such a text to the interpreter, whose complaints are answers, too.
EVALUATING = ("evaluate", "setVariable", "setExpression", "completions")
OWN_ERRORS = ("AttributeError", "TypeError", "KeyError", "IndexError", "OverflowError",
              "UnicodeDecodeError", "UnicodeEncodeError", "AssertionError")
NAMES = ["number", "items", "thing", "missing", "", "0", "a", u"\xe9", "x" * 300, "__class__"]
# They end or redirect the program, by intention.
LEFT_OUT = ("terminate", "goto")
STRINGS = ["", "x", "\0", u"\xe9\u20ac", u"\ud800", u"\U0001f600", "x" * 70000, "/", "..", "x.py",
           PROGRAM, "path", "uri", "raised", "uncaught", "watch", "repl", "hover", "clipboard",
           "variables", "statement", "line", "instruction", "named", "indexed", "1", "%s%n"]
NUMBERS = [0, 1, -1, 2, 3, 7, 35, 100, 255, 1 << 15, (1 << 31) - 1, 1 << 31, -(1 << 31), 1 << 53,
           (1 << 63) - 1, 1 << 63, 10 ** 30, -10 ** 30, 1.5, -0.0, 1e300, -1e-300]
COMMANDS = ["initialize", "attach", "launch", "configurationDone", "setBreakpoints",
            "setFunctionBreakpoints", "setExceptionBreakpoints", "threads", "stackTrace", "scopes",
            "variables", "evaluate", "setVariable", "setExpression", "completions", "source",
            "modules", "loadedSources", "next", "stepIn", "stepOut", "continue", "pause",
            "exceptionInfo", "gotoTargets", "cancel", "breakpointLocations", "restart",
            "stepInTargets", "readMemory", "disconnect", "", "x" * 5000, u"\xe9", "__init__"]


# Changing what was recorded.

class Mutator(object):

    def __init__(self, rng, corpus, token):
        """token: what the program that listens wants to be shown; None for the adapter."""
        self.rng = rng
        self.corpus = corpus
        self.token = token

    def messages(self):
        """A session, as it was or not."""
        rng = self.rng
        made = self.copy_of(rng.choice(self.corpus))
        if rng.random() < 0.4:
            # The beginning of one, the end of another.
            other = self.copy_of(rng.choice(self.corpus))
            made = made[:rng.randint(1, len(made))] + other[rng.randint(0, len(other) - 1):]
        for _ in range(rng.choice([0, 1, 2, 4, 8, 16])):
            self.change_order(made)
        for _ in range(rng.choice([0, 1, 2, 4, 8, 16, 32])):
            made[rng.randint(0, len(made) - 1)] = self.changed_message(rng.choice(made))
        return [message for message in map(self.harmless, made) if message is not None]

    def copy_of(self, session):
        text = json.dumps(session).replace(PLACEHOLDER, PROGRAM)
        return json.loads(text.replace(TOKEN_PLACEHOLDER, self.token or ""))

    def change_order(self, messages):
        rng = self.rng
        at, to = rng.randint(0, len(messages) - 1), rng.randint(0, len(messages) - 1)
        choice = rng.random()
        if choice < 0.3 and len(messages) > 2:
            messages.insert(to, messages.pop(at))
        elif choice < 0.5 and len(messages) > 2:
            del messages[at]
        elif choice < 0.8:
            messages.insert(to, messages[at])
        else:
            messages[at:at] = [messages[at]] * rng.choice([1, 3, 20])

    def changed_message(self, message):
        if not isinstance(message, dict) or self.rng.random() < 0.05:
            return self.value()
        message = dict(message)
        choice = self.rng.random()
        if choice < 0.7:
            message["arguments"] = self.changed(message.get("arguments"))
        elif choice < 0.8:
            message["command"] = self.rng.choice(COMMANDS)
        elif choice < 0.9:
            message["seq"] = self.value() if self.rng.random() < 0.3 else self.rng.choice(NUMBERS)
        elif choice < 0.95:
            message[self.rng.choice(["type", "seq", "command", "x"])] = self.value()
        else:
            message.pop(self.rng.choice(sorted(message) or ["x"]), None)
        return message

    def changed(self, value):
        rng = self.rng
        if isinstance(value, dict) and value and rng.random() < 0.85:
            value = dict(value)
            name = rng.choice(sorted(value))
            choice = rng.random()
            if choice < 0.15:
                del value[name]
            elif choice < 0.3:
                value[rng.choice(["x", "", "seq", "threadId", "frameId", "format"])] = self.value()
            else:
                value[name] = self.changed(value[name])
            return value
        if isinstance(value, list) and value and rng.random() < 0.7:
            value = list(value)
            at = rng.randint(0, len(value) - 1)
            value[at:at + 1] = [self.changed(value[at])] * rng.choice([0, 1, 2, 50])
            return value
        if type(value) is int and rng.random() < 0.6:
            return value + rng.choice([-1, 1, 2, 10, -100, 1 << 31])
        return self.value()

    def value(self, depth=0):
        rng = self.rng
        choice = rng.randint(0, 9)
        if choice < 3:
            return rng.choice(NUMBERS)
        if choice < 5:
            return rng.choice(STRINGS)
        if choice == 5:
            return rng.choice([None, True, False])
        if choice == 6 and depth < 3:
            return [self.value(depth + 1) for _ in range(rng.choice([0, 1, 3]))]
        if choice == 7 and depth < 3:
            return dict((rng.choice(["x", "path", "line", "name", ""]), self.value(depth + 1))
                        for _ in range(rng.choice([0, 1, 3])))
        if choice == 8:
            return self.nest(rng.choice([3, 50, 95, 101, 300]))
        return rng.choice(NAMES)

    def nest(self, depth):
        made = self.rng.choice([[], {}, 1])
        for _ in range(depth):
            made = [made] if depth % 2 else {"x": made}
        return made

    def harmless(self, message):
        if not isinstance(message, dict):
            return message
        command = message.get("command")
        if self.token is not None and command in LEFT_OUT:
            return None
        if command == "launch":
            # Nothing but the program that is there is launched.
            message = dict(message, arguments={"program": PROGRAM, "noDebug": False})
        arguments = message.get("arguments")
        if isinstance(arguments, dict):
            message = dict(message, arguments=self.safe(command, arguments))
        return message

    def safe(self, command, value, name=None):
        if isinstance(value, dict):
            return dict((key, self.safe(command, value[key], key)) for key in value)
        if isinstance(value, list):
            return [self.safe(command, each, name) for each in value]
        if isinstance(value, basestring) and value:
            if name in EVALUATED and value not in EXPRESSIONS:
                return self.rng.choice(EXPRESSIONS)
            if name == "name" and command == "setVariable" and value not in NAMES:
                return self.rng.choice(NAMES)
        if name == "terminateDebuggee":
            return False
        return value

    # Frames of messages.

    def frames(self, messages):
        """(bytes, whether each message arrives as it was)."""
        rng = self.rng
        pieces = [self.frame(json.dumps(message)) for message in messages]
        if rng.random() < 0.7:
            return "".join(pieces), True
        for _ in range(rng.choice([1, 1, 2, 5])):
            at = rng.randint(0, len(pieces) - 1)
            pieces[at] = self.broken_frame(pieces[at])
        return "".join(pieces), False

    def frame(self, body):
        header = "Content-Length: %d\r\n" % len(body)
        if self.rng.random() < 0.05:
            header = self.rng.choice([
                "content-length:%d\r\n" % len(body),
                header + "Content-Type: application/json\r\n",
                "CONTENT-LENGTH:  %d \r\nX: y\r\n" % len(body), header + "X:\r\n"])
        return header + "\r\n" + body

    def broken_frame(self, frame):
        rng = self.rng
        header, _, body = frame.partition("\r\n\r\n")
        length = rng.choice([0, -1, len(body) - 1, len(body) + 1, len(body) * 2, 1 << 24,
                             (1 << 24) + 1, 1 << 31, 1 << 63, 1 << 64])
        choice = rng.randint(0, 8)
        if choice == 0:
            return "Content-Length: %d\r\n\r\n%s" % (length, body)
        if choice == 1:
            return rng.choice(["\r\n\r\n", "", "x" * 5000, "\0", "Content-Length:\r\n\r\n",
                               "Content-Length: 1_0\r\n\r\n", "GET / HTTP/1.1\r\n\r\n",
                               "Content-Type: application/json\r\n%s\r\n\r\n" % header,
                               header.replace(":", " :") + "\r\n\r\n"]) + body
        if choice == 2:
            return header + "\n\n" + body
        if choice == 3:
            return frame[:rng.randint(0, len(frame))]
        if choice == 4:
            return frame[rng.randint(0, len(frame)):]
        if choice == 5:
            wrong = rng.choice(["{", "[" * 50000, "{\"x\":" * 20000, "NaN", "\"", "\xff", "1e999",
                                "{\"type\": \"event\"}", "{\"type\": 5}", "null", "[]", "0" * 90000])
            return "Content-Length: %d\r\n\r\n%s" % (len(wrong), wrong)
        at = rng.randint(0, max(0, len(frame) - 1))
        if choice == 6:
            return frame[:at] + chr(rng.randint(0, 255)) + frame[at + 1:]
        if choice == 7:
            return frame[:at] + frame[at:at + 7] * rng.choice([2, 100]) + frame[at:]
        return frame[:at] + chr(rng.randint(0, 255)) * 3 + frame[at:]

    def pieces(self, data):
        """How it is cut on its way."""
        rng = self.rng
        choice = rng.random()
        if choice < 0.5:
            return [data]
        size = rng.choice([1, 3, 17, 1000]) if len(data) < 3000 else rng.choice([500, 5000])
        return [data[at:at + size] for at in range(0, len(data), size)]


# What comes back.

class Answers(object):
    """What a peer has said, looked at as it comes."""

    def __init__(self):
        self.held = ""
        self.responses = {}
        self.is_over = False

    def feed(self, data):
        """Raises ValueError for what is no message."""
        self.held += data
        while "\r\n\r\n" in self.held:
            header, _, rest = self.held.partition("\r\n\r\n")
            length = int(re.match(r"Content-Length: (\d+)$", header).group(1))
            if len(rest) < length:
                return
            self.held = rest[length:]
            self.take(json.loads(rest[:length]))

    def take(self, message):
        if type(message.get("seq")) is not int:
            raise ValueError("no seq: %r" % message)
        if message["type"] == "response":
            number = message["request_seq"]
            if type(message["success"]) is not bool or not isinstance(message["command"], unicode):
                raise ValueError("no response: %r" % message)
            if not message["success"] and not isinstance(message["message"], unicode):
                raise ValueError("no reason: %r" % message)
            self.look_at_reason(message)
            self.responses.setdefault(number, []).append(message["command"])
            self.is_over = self.is_over or message["command"] == "disconnect" and message["success"]
        elif message["type"] == "event":
            if not isinstance(message["event"], unicode):
                raise ValueError("no event: %r" % message)
        elif message["type"] != "request":
            raise ValueError("no type: %r" % message)

    def look_at_reason(self, message):
        """What goes wrong is foreseen, and not an error of the server's own."""
        if not message["success"] and message["command"] not in EVALUATING:
            for name in OWN_ERRORS:
                if name in message["message"]:
                    raise ValueError("refused for %r: %s" % (
                        message["message"], message["command"]))


class Door(object):
    """Who may debug the program: whoever has introduced itself, and then shows the token."""

    MOST_MESSAGES = 20

    def __init__(self, token):
        """token: None where whoever comes may."""
        self._token = token
        self.is_open = token is None
        self._is_introduced = False
        self._messages = 0

    def limits(self):
        return messages.FROM_CLIENT if self.is_open else messages.FROM_STRANGER

    def has_patience(self):
        """Whether one more message is listened to."""
        self._messages += 1
        return self.is_open or self._messages <= self.MOST_MESSAGES

    def lets(self, request):
        """Whether whoever has made it may go on."""
        if not self.is_open and request["command"] == "initialize":
            self._is_introduced = self._is_introduced or has_right_shape(request)
        elif not self.is_open and request["command"] == "attach" and self._is_introduced:
            arguments = request.get("arguments")
            self.is_open = isinstance(arguments, dict) and arguments.get("token") == self._token
            return self.is_open
        return True


def has_right_shape(request):
    try:
        schema.checked(request)
    except messages.Refused:
        return False
    return True


def is_readable(message, limits):
    return isinstance(message, dict) and isinstance(message.get("type"), basestring) and (
        message["type"] != "request" or type(message.get("seq")) in (int, long)
        and isinstance(message.get("command"), basestring)) and \
        depth_of(message) <= 100 and is_within(json.dumps(message), limits)


def is_within(text, limits):
    """Whether the text of a message is not too large, nor made of too many parts."""
    strings = re.findall(r'"[^"\\]*(?:\\.[^"\\]*)*"', text)
    marks = len(re.findall("[,:[{]", text)) - len(re.findall("[,:[{]", "".join(strings)))
    return len(text) <= limits.size and \
        max(text.count("\\"), len(strings), marks) <= limits.parts


def depth_of(value):
    depth, level = 0, [value]
    while level:
        containers = [each for each in level if isinstance(each, (dict, list))]
        level = []
        for each in containers:
            level.extend(isinstance(each, dict) and each.values() or each)
        depth += len(containers) > 0
    return depth


class Expected(object):
    """What is to come back for these messages.

    wanted: (seq, command) of the requests that can be read. surely: how many of them must be
    answered. before_end: how many even if the connection ends, and may_end: whether it may.
    """

    def __init__(self, messages, token):
        self.wanted = []
        door = Door(token)
        surely = None
        is_broken = is_shown_out = False
        for message in messages:
            is_broken = not is_readable(message, door.limits()) or not door.has_patience()
            if is_broken:
                break
            if message["type"] == "request":
                self.wanted.append((message["seq"], message["command"]))
                is_shown_out = surely is None and not door.lets(message)
                if surely is None and (is_shown_out or message["command"] == "disconnect"):
                    surely = len(self.wanted)
                if is_shown_out:
                    break
        self.surely = len(self.wanted) if surely is None else surely
        # Whoever is not let in has to go after a while.
        self.may_end = is_broken or surely is not None or not door.is_open
        self.before_end = 0 if self.may_end and not is_shown_out else self.surely

    def missing(self, responses, ended):
        """Those that must be answered and are not. responses: the commands answered, by seq."""
        left = dict((seq, len(responses[seq])) for seq in responses)
        missing = []
        for seq, command in self.wanted[:self.before_end if ended else self.surely]:
            left[seq] = left.get(seq, 0) - 1
            if left[seq] < 0:
                missing.append((seq, command))
        return missing


class Fault(Exception):
    pass


def complaint_of(expected, answers, ended):
    """What is wrong with the answers, or None."""
    counts = {}
    for seq, _ in expected.wanted:
        counts[seq] = counts.get(seq, 0) + 1
    for seq in answers.responses:
        if len(answers.responses[seq]) > counts.get(seq, 0):
            return "%d answers to %d requests %r" % (
                len(answers.responses[seq]), counts.get(seq, 0), seq)
    missing = expected.missing(answers.responses, ended)
    if missing:
        return "no answers to %r%s" % (missing[:5], " before the end" if ended else "")
    if ended and not expected.may_end and not answers.is_over:
        return "the connection has ended"
    return None


class Session(object):
    """A hostile one, over whatever `send`, `receive(seconds)` ('' at the end) and `close` do."""

    def __init__(self, mutator):
        self.answers = Answers()
        self.mutator = mutator
        self.sent = mutator.messages()
        self.data, self.is_whole = mutator.frames(self.sent)

    def go(self, send, receive):
        ended = False
        for piece in self.mutator.pieces(self.data):
            try:
                send(piece)
            except (socket.error, IOError):
                ended = True
                break
            # Who does not read is dropped.
            ended = self.read(receive, 0) or ended
        expected = Expected(self.sent, self.mutator.token)
        if self.mutator.rng.random() < 0.15:
            return
        end = time.time() + (PATIENCE if self.is_whole else 0.3)
        while not ended and time.time() < end and not self.has_all(expected):
            ended = self.read(receive, 0.2)
        # There may be one too many.
        ended = ended or self.read(receive, 0.02)
        if self.is_whole:
            wrong = complaint_of(expected, self.answers, ended)
            if wrong:
                raise Fault(wrong)

    def has_all(self, expected):
        return self.is_whole and not expected.missing(self.answers.responses, False)

    def read(self, receive, seconds):
        """Whether the other side has ended. It may have so much to say that there is no end."""
        data = receive(seconds)
        end = time.time() + 1
        while data and time.time() < end:
            self.answers.feed(data)
            data = receive(0)
        if data:
            self.answers.feed(data)
        return data == ""


# The two sides that are tested.

class Host(dap_session.TestCase):
    """Starts what is debugged, and clients of it, as the tests do."""

    def runTest(self):
        pass

    def start(self):
        self.setUp()
        self.counter = os.path.join(self.folder, "counter")
        self.program = self.opened(dap_session.Program(PROGRAM, args=[self.counter]))
        self.errors = ""
        return self.program

    def hello(self):
        """A connection that the program takes for a client's."""
        return self.connect(self.program)

    def let_go(self, client):
        self._opened.remove(client)
        client.close()

    def complaints(self):
        stream = self.program.process.stderr.fileno()
        while select.select([stream], [], [], 0)[0]:
            data = os.read(stream, 65536)
            if not data:
                break
            self.errors += data
        return self.errors

    def count(self):
        try:
            return int(open(self.counter).read() or "0")
        except (IOError, ValueError):
            return 0

    def goes_on(self):
        before, end = self.count(), time.time() + PATIENCE
        while self.count() <= before:
            status = self.program.process.poll()
            if status is not None:
                raise Fault("the program has ended: %r" % status)
            if time.time() > end:
                raise Fault("the program stands still")
            time.sleep(0.002)

    def memory(self):
        pages = open("/proc/%d/statm" % self.program.process.pid).read().split()[1]
        return int(pages) * os.sysconf("SC_PAGE_SIZE")

    def can_be_debugged(self):
        """Another client finds everything as it should be."""
        client = self.hello()
        client.begin({})
        self.break_at(client, self.program, "# work")
        client.ask("setFunctionBreakpoints", breakpoints=[])
        client.ask("setExceptionBreakpoints", filters=[])
        client.ask("configurationDone")
        where = client.stopped()
        wanted = "breakpoint work:%d" % self.program.line("# work")
        if where != wanted:
            raise Fault("stopped at %r" % where)
        if client.variable("number")["value"] != "7":
            raise Fault("number is %r" % client.variable("number"))
        client.ask("disconnect")
        self.let_go(client)


def attack_program(host, mutator):
    session = Session(mutator)
    client = host.hello()
    try:
        client.socket.settimeout(PATIENCE)

        def receive(seconds):
            if not select.select([client.socket], [], [], seconds)[0]:
                return None
            try:
                return client.socket.recv(65536)
            except socket.error:
                return ""
        session.go(client.socket.sendall, receive)
    finally:
        if mutator.rng.random() < 0.3:
            client.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        host.let_go(client)


def attack_adapter(mutator):
    errors = os.tmpfile()
    adapter = dap_session.Adapter(stderr=errors)
    try:
        out = adapter.process.stdout.fileno()
        session = Session(mutator)

        def receive(seconds):
            return os.read(out, 65536) if select.select([out], [], [], seconds)[0] else None
        session.go(adapter._send, receive)
        adapter.process.stdin.close()
        end = time.time() + PATIENCE
        while adapter.process.poll() is None:
            receive(0.05)
            if time.time() > end:
                raise Fault("the adapter does not end with its input")
        if adapter.process.returncode < 0:
            raise Fault("the adapter has ended: %d" % adapter.process.returncode)
        left = [pid for pid in os.listdir("/proc") if pid.isdigit() and is_debuggee(pid)]
        while left and time.time() < end:
            left = [pid for pid in left if is_debuggee(pid)]
            time.sleep(0.02)
        if left:
            raise Fault("the program was left behind")
        errors.seek(0)
        said = errors.read()
        if "Traceback" in said or "sorrel:" in said:
            raise Fault("the adapter complains: %s" % said[-3000:])
    finally:
        # After all that it is not to wait for anything.
        adapter.process.stdin = open(os.devnull)
        adapter.close()


def is_debuggee(pid):
    """Whether a process runs the program to its end."""
    try:
        words = open("/proc/%s/cmdline" % pid).read().split("\0")
    except IOError:
        return False
    return PROGRAM in words and words[-2] == PROGRAM


class Fuzzer(fuzzing.Fuzzer):

    batch = 20
    short_rounds = 80
    # Of so many rounds, one is the adapter's.
    adapter_every = 5

    def __init__(self):
        fuzzing.Fuzzer.__init__(self, "tests/fuzz/transport.py", None)
        self.corpus = dict((os.path.basename(path), json.load(open(path)))
                           for path in sorted(glob.glob(os.path.join(CORPUS, "*.json"))))

    def run(self, first, last, steps, verbose=False):
        host = Host()
        host.start()
        try:
            host.goes_on()
            host.can_be_debugged()
            size = host.memory()
            for seed in range(first, last + 1):
                if not self.round(host, seed, verbose):
                    # What came before is not to be blamed for the rest.
                    host.tearDown()
                    host = Host()
                    host.start()
                    size = host.memory()
            grown = host.memory() - size
            if grown > GROWTH:
                self.fault(last, "the program has grown by %d MB" % (grown / MEGABYTE))
        finally:
            host.tearDown()

    def round(self, host, seed, verbose):
        self.rounds += 1
        rng = fuzzing.dice(seed)
        listening = seed % self.adapter_every != 0
        corpus = [self.corpus[name] for name in sorted(self.corpus)
                  if listening != name.startswith("launch")]
        token = host.program.token if listening else None
        mutator = Mutator(rng, corpus, token)
        if verbose:
            for message in Mutator(fuzzing.dice(seed), corpus, token).messages():
                print(json.dumps(message)[:200])
        try:
            if listening:
                attack_program(host, mutator)
                host.goes_on()
                host.can_be_debugged()
                host.goes_on()
                if host.complaints():
                    said, host.errors = host.errors, ""
                    raise Fault("the server complains: %s" % said[-3000:])
            else:
                attack_adapter(mutator)
        except Exception, error:
            if not isinstance(error, (Fault, ValueError)):
                traceback.print_exc(file=sys.stdout)
            self.fault(seed, "%s: %s" % (type(error).__name__, error))
            return False
        self.steps += 1
        return True

    def fault(self, seed, text):
        self.faults += 1
        print("FAULT seed %d: %s" % (seed, text[:4000]))
        print("again: ./morvik python -- %s --seed %d --verbose" % (self.script, seed))
        sys.stdout.flush()


# Recording.

class Recording(object):
    """Keeps what a client sends."""

    def __init__(self, client):
        self.client = client
        self.messages = []
        self._send = client.send
        client.send = self.send

    def send(self, message):
        self.messages.append(message)
        self._send(message)

    def keep(self, name, token=None):
        """token: that of the program."""
        path = os.path.join(CORPUS, name + ".json")
        output = open(path, "w")
        text = json.dumps(self.messages, indent=1, sort_keys=True).replace(PROGRAM, PLACEHOLDER)
        if token is not None:
            text = text.replace(token, TOKEN_PLACEHOLDER)
        output.write(re.sub(r" +\n", "\n", text) + "\n")
        output.close()


def record():
    host = Host()
    host.start()
    try:
        for name, play in (("attach_inspecting", inspecting), ("attach_stepping", stepping),
                           ("attach_exceptions", exceptions), ("attach_sources", sources)):
            client = host.hello()
            recording = Recording(client)
            client.begin({"justMyCode": True})
            play(host, client)
            client.ask("disconnect")
            recording.keep(name, host.program.token)
            host.let_go(client)
    finally:
        host.tearDown()
    adapter = dap_session.Adapter()
    try:
        recording = Recording(adapter)
        launching(adapter, host.program.line("# work"))
        recording.keep("launch")
    finally:
        adapter.close()


def at_work(host, client):
    host.break_at(client, host.program, "# work")
    client.ask("configurationDone")
    client.stopped()


def inspecting(host, client):
    at_work(host, client)
    client.ask("threads")
    frames = client.ask("stackTrace", threadId=client.thread, startFrame=0, levels=20)["stackFrames"]
    for scope in client.ask("scopes", frameId=frames[0]["id"])["scopes"]:
        for variable in client.variables(scope["variablesReference"], start=0, count=20):
            if variable["variablesReference"]:
                client.variables(variable["variablesReference"])
                break
    for context in "watch", "hover", "repl":
        client.evaluate("thing.items[1]", context)
    client.ask("setVariable", variablesReference=client.scope(), name="number", value="number + 1")
    client.ask("setExpression", expression="number", value="1", frameId=client.top()["id"])
    client.ask("completions", text="number.", column=8, frameId=client.top()["id"])


def stepping(host, client):
    at_work(host, client)
    for command in "next", "stepIn", "stepOut", "next":
        client.step(command)
    client.go()
    client.stopped()
    host.break_at(client, host.program)
    client.go()
    client.ask("pause", threadId=client.thread)
    client.stopped()
    client.ask("cancel", requestId=1)


def exceptions(host, client):
    client.ask("setExceptionBreakpoints", filters=["raised"])
    client.ask("configurationDone")
    client.stopped()
    client.ask("exceptionInfo", threadId=client.thread)
    client.top()
    client.ask("setExceptionBreakpoints", filters=[], filterOptions=[
        {"filterId": "raised", "condition": "KeyError"}])
    client.go()
    client.stopped()
    client.ask("setExceptionBreakpoints", filters=["uncaught"])


def sources(host, client):
    client.ask("setFunctionBreakpoints", breakpoints=[{"name": "work", "condition": "number"}])
    client.ask("setBreakpoints", source={"path": PROGRAM}, breakpoints=[
        {"line": host.program.line("# work"), "logMessage": "number", "hitCondition": "1"},
        {"line": host.program.line("# raised"), "condition": "number + 1"}])
    client.ask("configurationDone")
    client.stopped()
    client.ask("modules", startModule=0, moduleCount=5)
    client.ask("loadedSources")
    client.ask("source", source={"path": PROGRAM}, sourceReference=0)
    client.ask("gotoTargets", source={"path": PROGRAM}, line=host.program.line("# raised"))


def launching(adapter, work):
    adapter.launch(program=PROGRAM)
    adapter.ask("setBreakpoints", source={"path": PROGRAM}, breakpoints=[{"line": work}])
    adapter.ask("configurationDone")
    adapter.stopped()
    adapter.evaluate("number")
    adapter.ask("threads")
    adapter.variables(adapter.scope())
    adapter.step()
    adapter.ask("setBreakpoints", source={"path": PROGRAM}, breakpoints=[])
    adapter.go()
    adapter.event("terminated")
    adapter.ask("disconnect")


if __name__ == "__main__":
    if sys.argv[1:] == ["--record"]:
        sys.exit(record())
    sys.exit(Fuzzer().main(fuzzing.options(__doc__.splitlines()[0])))
