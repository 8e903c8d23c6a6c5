'use strict';
// Clients that make no sense, or are gone all of a sudden: the program is ready for the next.

const test = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const { withClient, program, line, scratch } = require('./lib/client');
const { connect, frame, isThere, until } = require('./lib/listening');
const { SERVICE, withService } = require('./lib/service');

const AT_ONCE = {
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
    'its end': (socket) => socket.destroy(),
};
const AFTER_A_WHILE = {
    'half a message and nothing more': (socket) => socket.write('Content-Length: 100\r\n\r\n{'),
    'nothing at all': () => {},
};

// A client at work, so far.
async function atWork(port, token) {
    const socket = await connect(port);
    let seq = 1;
    const ask = async (command, args, answer) => {
        socket.write(frame({ seq: seq++, type: 'request', command, arguments: args }));
        await until(() => socket.received.includes(answer), () => socket.received);
    };
    await ask('initialize', { adapterID: 'x' }, '"initialize"');
    await ask('attach', { token }, '"initialized"');
    await ask('setBreakpoints', { source: { path: SERVICE },
        breakpoints: [{ line: line(SERVICE, '# work') }] }, '"setBreakpoints"');
    await ask('configurationDone', {}, '"stopped"');
    return socket;
}

// Whoever comes now finds the program as it should be: it stops where this client wants, and never
// where the last one did.
async function nextClient(port) {
    await withClient(async (client) => {
        await client.begin('attach', { port });
        await client.breakAt(SERVICE, line(SERVICE, '# main'));
        for (let stops = 0; stops < 10; stops++) {
            assert.equal(await client.stop(), `breakpoint <module>:${line(SERVICE, '# main')}`);
            await client.go();
        }
    });
}

async function meets(port, token, send) {
    // Once as its first words, once from the midst of debugging.
    const first = await connect(port);
    send(first);
    await first.hungUp;
    const second = await atWork(port, token);
    send(second);
    await second.hungUp;
    await nextClient(port);
}

// The adapter's client says what is no message.
async function errs(client) {
    client._adapterProcess.stdin.write('GET / HTTP/1.0\r\n\r\n');
    await client.closed;
}

test('the program is ready for the next client', () =>
    withService(async (service, port, token) => {
        await service.wrote('ready');
        for (const [what, send] of Object.entries(AT_ONCE)) {
            await meets(port, token, send).catch((error) => {
                throw new Error(`after ${what}: ${error.message}`, { cause: error });
            });
            assert.equal(service.status, undefined, what);
        }
    }));

test('the program waits for no client for ever', { concurrency: true }, (t) =>
    Promise.all(Object.entries(AFTER_A_WHILE).map(([what, send]) => t.test(what, () =>
        withService(async (service, port, token) => {
            await service.wrote('ready');
            const silent = await connect(port);
            send(silent);
            await silent.hungUp;
            const second = await atWork(port, token);
            if (what !== 'nothing at all') {
                send(second);
                await second.hungUp;
            }
            second.destroy();
            await nextClient(port);
        })))));

test('a web page does not get a word in', () => withService(async (service, port, token) => {
    const attach = frame({ seq: 2, type: 'request', command: 'attach', arguments: { token } });
    const answer = fetch(`http://127.0.0.1:${port}/`, { method: 'POST', body: attach });
    await assert.rejects(answer);
    assert.equal(service.status, undefined);
    await nextClient(port);
}));

test('who does not know the token learns nothing', () => withService(async (service, port) => {
    await withClient(async (client) => {
        await client.initialize();
        await assert.rejects(client.send('attach', { token: 'x' }), /the token is missing/);
        await client.closed;
        assert.deepEqual(client.kept, []);
    }, { port });
    await nextClient(port);
}));

test('the adapter ends the program that it has launched if its client errs', () =>
    withClient(async (client) => {
        const note = path.join(scratch(), 'note');
        const file = program(`
import signal, sys, time

def tidy(number, frame):
    open(sys.argv[1], 'w').write('tidied')
    sys.exit()

signal.signal(signal.SIGTERM, tidy)
for _ in range(60000):
    time.sleep(0.001)  # turn
`);
        await client.launchTo(file, '# turn', { args: [note] });
        const { systemProcessId } = await client.next('process');
        await errs(client);
        await until(() => !isThere(systemProcessId), () => 'still there');
        assert.equal(fs.readFileSync(note, 'utf8'), 'tidied');
    }));

test('the adapter lets go of the program that it is attached to if its client errs', () =>
    withService(async (service, port) => {
        await withClient(async (client) => {
            await client.begin('attach', { port });
            await client.breakAt(SERVICE, line(SERVICE, '# main'));
            await client.stop();
            await errs(client);
        });
        await nextClient(port);
        assert.equal(service.status, undefined);
    }));
