"""The program that bench/launched.py has launched: it runs those that are measured, as it is told.

usage: worker.py PORT, of this machine. From there come lines of a program's name and times.
"""

import gc
import os
import socket
import sys

sys.path[0] = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

from bench import programs
from bench.timing import timed


def main():
    gc.disable()
    known = dict((programs.name(program), program) for program in programs.ALL)
    connected = socket.create_connection(("127.0.0.1", int(sys.argv[1])))
    while True:
        words = connected.recv(1000).split()
        if not words:
            break
        program, times = known[words[0]], int(words[1])
        # The others come from each other's turns: this process has been waiting, and is cold.
        program.run(times)
        connected.sendall("%r\n" % timed(program, times))


main()
