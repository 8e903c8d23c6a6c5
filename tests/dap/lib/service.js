'use strict';
// A service in two threads, listening.

const assert = require('node:assert');
const { program, line } = require('./client');
const { Listening } = require('./listening');

const SERVICE = program(`
import sys, threading, time
running = True
turns = 0

def turn(number):
    global turns
    turns += 1  # turn
    return number

def work():
    while running:
        turn(turns)  # work
        time.sleep(0.001)

other = threading.Thread(target=work, name='worker')
other.start()
print 'ready'
sys.stdout.flush()
while running:
    turn(turns)  # main
    time.sleep(0.001)
other.join()
print 'over'
`);

// Runs a test with the service, called with its Listening, its port and its token.
async function withService(use, options = []) {
    const service = new Listening(SERVICE, options);
    try {
        await use(service, await service.port(), await service.token());
    } finally {
        await service.kill();
    }
}

// Sees to it that the client stops both threads at breakpoints, which stay.
async function stopsInBothThreads(client) {
    await client.breakAt(SERVICE, line(SERVICE, '# work'), line(SERVICE, '# main'));
    const names = new Set();
    while (names.size < 2) {
        const { threadId } = await client.next('stopped');
        const { threads } = (await client.send('threads')).body;
        names.add(threads.find((thread) => thread.id === threadId).name);
        await client.go(threadId);
    }
    assert.deepEqual([...names].sort(), ['MainThread', 'worker']);
}

module.exports = { SERVICE, withService, stopsInBothThreads };
