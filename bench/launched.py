"""A program that is launched as an editor launches it, and what the others take there."""

import os
import select
import socket
import subprocess
import time

from bench import programs
from sorrel.protocol import messages
from sorrel.protocol.launch_callers import Handshake

_WORKER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "worker.py")
_PATIENCE = 60.0


class Launched(object):
    """To stop at what nothing catches, with a breakpoint in each program's file that is never
    reached."""

    def __init__(self, place_of):
        """place_of: gives a function's file and first line."""
        listener = socket.socket()
        listener.bind(("127.0.0.1", 0))
        listener.listen(1)
        handshake = Handshake()
        launcher = os.environ.get("MORVIK_PYTHON_EXE") or os.readlink("/proc/self/exe")
        self._process = subprocess.Popen(
            [launcher, "-m", "sorrel.main", "serve", "--handshake", handshake.path, "--", _WORKER,
             str(listener.getsockname()[1])], stdin=open(os.devnull), stdout=open(os.devnull, "w"))
        try:
            # The first who comes is the client's connection.
            self._client, end = None, time.time() + _PATIENCE
            while self._client is None:
                if time.time() > end:
                    raise EnvironmentError("the launched program does not come")
                self._client = handshake.look(select.select(handshake.sockets(), [], [], 0.1)[0])
            self._client.settimeout(_PATIENCE)
            self._configure(place_of)
            listener.settimeout(_PATIENCE)
            self._worker = listener.accept()[0]
            self._worker.settimeout(_PATIENCE)
        except:
            self._process.kill()
            raise
        finally:
            handshake.close()
            listener.close()

    def timed(self, program, times):
        self._worker.sendall("%s %d\n" % (programs.name(program), times))
        said = ""
        while not said.endswith("\n"):
            more = self._worker.recv(1000)
            if not more:
                raise EnvironmentError("the launched program has ended")
            said += more
        return float(said)

    def close(self):
        self._worker.close()
        self._process.wait()
        self._client.close()

    def _configure(self, place_of):
        self._decoder = messages.Decoder()
        self._arrived = []
        self._said = 0
        self._ask("initialize", adapterID="bench")
        self._say("launch")
        self._wait_for("event", "event", "initialized")
        for program in programs.ALL:
            path, line = place_of(program.quiet)
            self._ask("setBreakpoints", source={"path": path}, breakpoints=[{"line": line}])
        self._ask("setExceptionBreakpoints", filters=["uncaught"])
        self._ask("configurationDone")

    def _ask(self, command, **arguments):
        self._say(command, **arguments)
        answer = self._wait_for("response", "command", command)
        if not answer["success"]:
            raise EnvironmentError("%s: %s" % (command, answer.get("message")))

    def _say(self, command, **arguments):
        self._said += 1
        self._client.sendall(messages.encode({
            "type": "request", "seq": self._said, "command": command, "arguments": arguments}))

    def _wait_for(self, kind, key, name):
        while True:
            for message in self._arrived:
                if message["type"] == kind and message.get(key) == name:
                    self._arrived.remove(message)
                    return message
            more = self._client.recv(65536)
            if not more:
                raise EnvironmentError("the launched program has ended")
            self._arrived.extend(self._decoder.feed(more))
