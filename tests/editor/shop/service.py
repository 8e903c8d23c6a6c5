"""Works until it is ended, in threads of the names that it is given."""

import sys
import threading
import time


def work():
    turn = 0
    while True:
        turn += 1
        time.sleep(0.02)  # waits


if __name__ == '__main__':
    for name in sys.argv[1:]:
        thread = threading.Thread(target=work, name=name)
        thread.setDaemon(True)
        thread.start()
    work()
