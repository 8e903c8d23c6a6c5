"""Waits for a program's standard input and for a connection at the same time.

This is what a debug server does that talks to its user over a network: while the program is
stopped, the user may type a line for the program or send the server a request.  Here a
pseudo-terminal is the program's standard input, a socket pair is the connection, and a thread
is the user at both.

usage: ./morvik python -- examples/wait_both.py
"""

import os
import pty
import socket
import threading

import tmorvik26_vs2012_x64 as core

USER_ACTIONS = (("type", "first line\n"), ("send", "where"), ("send", "next"),
                ("type", "second line\n"), ("send", "continue"))


def watch(terminal, connection):
    """Yields what comes, and from where, until one of the two ends."""
    while True:
        answer = core.WaitForInput(terminal, [connection])
        if answer < 0:
            raise IOError("cannot wait for terminal and connection")
        if answer == 0:
            text = connection.recv(4096)
            source = "connection"
        else:
            # A terminal hands out whole lines.
            text = terminal.readline()
            source = "terminal"
        if not text:
            return
        yield source, text


def be_the_user(keyboard, connection, handled):
    for action, text in USER_ACTIONS:
        if action == "type":
            os.write(keyboard, text)
        else:
            connection.sendall(text)
        handled.wait()
        handled.clear()
    connection.close()


def main():
    keyboard, descriptor = pty.openpty()
    terminal = os.fdopen(descriptor)
    connection, remote = socket.socketpair()
    handled = threading.Event()
    user = threading.Thread(target=be_the_user, args=(keyboard, remote, handled))
    user.start()
    for source, text in watch(terminal, connection):
        print("from the %s: %r" % (source, text))
        handled.set()
    user.join()
    print("the connection is closed")


if __name__ == "__main__":
    main()
