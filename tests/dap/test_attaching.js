'use strict';
const test = require('node:test');
const assert = require('node:assert');
const net = require('node:net');
const { withClient, program, line } = require('./lib/client');
const { Listening, connect, frame, until } = require('./lib/listening');

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

async function withService(use, options = []) {
    const service = new Listening(SERVICE, options);
    try {
        await use(service, await service.port());
    } finally {
        await service.kill();
    }
}

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

test('a running program is attached to, in all its threads', () =>
    withService(async (service, port) => {
        await service.wrote('ready');
        await withClient(async (client) => {
            await client.begin('attach', { port });
            await stopsInBothThreads(client);
            await client.next('stopped');
            // Not only where it stops, but also what it is asked to do holds at once.
            await client.evaluate('globals().update(running=False)', 'repl');
            await client.breakAt(SERVICE);
            await client.go();
            assert.equal((await client.next('exited')).exitCode, 0);
            await client.next('terminated');
        });
        assert.equal(await service.ended, 0);
        assert.equal(service.out, 'ready\nover\n');
    }));

test('clients come and go, the program runs on', () =>
    withService(async (service, port) => {
        await service.wrote('ready');
        for (let round = 0; round < 3; round++) {
            await withClient(async (client) => {
                await client.begin('attach', { port });
                await stopsInBothThreads(client);
                await client.next('stopped');
                await client.send('disconnect', {});
            });
        }
        // A client may also speak to the program itself.
        await withClient(async (client) => {
            await client.begin('attach', { justMyCode: true });
            await stopsInBothThreads(client);
            await client.next('stopped');
            const before = Number((await client.evaluate('turns')).result);
            await client.breakAt(SERVICE);
            await client.go();
            await new Promise((resolve) => setTimeout(resolve, 200));
            await client.send('pause', { threadId: 1 });
            const stop = await client.next('stopped');
            assert.equal(stop.reason, 'pause');
            assert.ok(Number((await client.evaluate('globals()["turns"]')).result) > before);
        }, { port });
        assert.equal(service.status, undefined);
    }));

test('a program waits for its client', () =>
    withService(async (service, port) => {
        await withClient(async (client) => {
            await client.begin('attach', { port, stopOnEntry: true });
            assert.equal(await client.stop(), 'entry <module>:1');
            assert.equal(service.out, '');
            await client.go();
            await service.wrote('ready');
        });
    }, ['--wait']));

test('one client at a time', () =>
    withService(async (service, port) => {
        await service.wrote('ready');
        await withClient(async (client) => {
            await client.begin('attach', { port });
            const second = await connect(port);
            await second.hungUp;
            assert.equal(second.received, '');
            await stopsInBothThreads(client);
        });
    }));

for (const [what, send] of Object.entries({
    'rubbish': (socket) => socket.write('GET / HTTP/1.0\r\n\r\n'),
    'a header that does not end': (socket) => socket.write('X'.repeat(10000)),
    'a length out of all bounds': (socket) => socket.write('Content-Length: 99999999999\r\n\r\n'),
    'a header without a length': (socket) => socket.write('Content-Type: x\r\n\r\n{}'),
    'no JSON': (socket) => socket.write('Content-Length: 5\r\n\r\n{{{{{'),
    'JSON nested without end': (socket) => socket.write(
        `Content-Length: 1000000\r\n\r\n${'['.repeat(1000000)}`),
    'JSON that is no message': (socket) => socket.write('Content-Length: 2\r\n\r\n[]'),
    'a request without a number': (socket) => socket.write(
        frame({ type: 'request', command: 'threads' })),
    'half a message': (socket) => socket.end('Content-Length: 100\r\n\r\n{"type":'),
    'half a message and nothing more': (socket) => socket.write('Content-Length: 100\r\n\r\n{'),
    'nothing at all': () => {},
    'its end': (socket) => socket.destroy(),
})) {
    test(`a client that sends ${what} leaves the program ready for the next`, () =>
        withService(async (service, port) => {
            await service.wrote('ready');
            // Once as its first words, once from the midst of debugging.
            const first = await connect(port);
            send(first);
            await first.hungUp;
            const second = await connect(port);
            let seq = 1;
            const ask = async (command, args, answer) => {
                second.write(frame({ seq: seq++, type: 'request', command, arguments: args }));
                await until(() => second.received.includes(answer), () => second.received);
            };
            await ask('initialize', { adapterID: 'x' }, '"initialize"');
            await ask('attach', {}, '"initialized"');
            await ask('setBreakpoints', { source: { path: SERVICE },
                breakpoints: [{ line: line(SERVICE, '# work') }] }, '"setBreakpoints"');
            await ask('configurationDone', {}, '"stopped"');
            send(second);
            if (what === 'nothing at all') {
                second.destroy();
            }
            await second.hungUp;
            await withClient(async (client) => {
                await client.begin('attach', { port });
                await new Promise((resolve) => setTimeout(resolve, 100));
                assert.ok(!client.has('stopped'), 'a breakpoint is left');
                await stopsInBothThreads(client);
                await client.next('stopped');
                await client.evaluate('globals().update(running=False)', 'repl');
            });
            assert.equal(await service.ended, 0);
            assert.equal(service.out, 'ready\nover\n');
        }));
}

test('only this machine can connect where no host is named', () =>
    withService(async (service, port) => {
        const outside = Object.values(require('node:os').networkInterfaces()).flat()
            .find((one) => one.family === 'IPv4' && !one.internal);
        const address = outside ? outside.address : '127.0.0.2';
        await assert.rejects(new Promise((resolve, reject) => {
            const socket = net.createConnection(port, address, () => {
                socket.destroy();
                resolve();
            });
            socket.on('error', reject);
        }), { code: 'ECONNREFUSED' });
    }));
