'use strict';
// How debugging ends, and what becomes of the program then.

const test = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const { withClient, program, line, scratch } = require('./lib/client');
const { Listening, isThere, until } = require('./lib/listening');

// Runs until the file that is its argument says so, or it is ended.
const LASTING = program(`
import atexit, signal, sys, time
def write(text):
    note = open(sys.argv[1], 'a')
    note.write(text + '\\n')
    note.close()
if 'tidy' in sys.argv:
    def tidy(number, frame):
        write('tidied')
        sys.exit(9)
    signal.signal(signal.SIGTERM, tidy)
write('begun')
turns = 0
while 'end' not in open(sys.argv[1]).read():
    turns += 1  # turn
    time.sleep(0.001)
write('over')
`);

function note() {
    const file = path.join(scratch(), 'note');
    const read = () => (fs.existsSync(file) ? fs.readFileSync(file, 'utf8') : '');
    return { file, read, says: (text) => until(() => read().includes(text),
        () => `no ${text} in ${read()}`) };
}

async function launched(client, args, configure) {
    await client.launch({ program: LASTING, args }, configure);
    return (await client.next('process')).systemProcessId;
}

for (const state of ['running', 'stopped']) {
    const configure = (client) => (state === 'stopped'
        ? () => client.breakAt(LASTING, line(LASTING, '# turn')) : undefined);
    const reach = (client, noted) => (state === 'stopped' ? client.next('stopped')
        : noted.says('begun'));

    test(`disconnecting ends a launched program that is ${state}`, () =>
        withClient(async (client) => {
            const noted = note();
            const pid = await launched(client, [noted.file], configure(client));
            await reach(client, noted);
            await client.send('disconnect', {});
            await client.next('terminated');
            await client.closed;
            await until(() => !isThere(pid), () => 'still there');
            assert.equal(noted.read(), 'begun\n');
        }));

    test(`disconnecting can leave a launched program that is ${state}`, () =>
        withClient(async (client) => {
            const noted = note();
            const pid = await launched(client, [noted.file], configure(client));
            await reach(client, noted);
            await client.send('disconnect', { terminateDebuggee: false });
            client.stopAdapter();
            fs.appendFileSync(noted.file, 'end\n');
            await noted.says('over');
            await until(() => !isThere(pid), () => 'still there');
        }));

    test(`a program that is ${state} is terminated and may tidy up`, () =>
        withClient(async (client) => {
            const noted = note();
            await launched(client, [noted.file, 'tidy'], configure(client));
            await reach(client, noted);
            await client.send('terminate', {});
            assert.equal((await client.next('exited')).exitCode, 9);
            await client.next('terminated');
            assert.equal(noted.read(), 'begun\ntidied\n');
        }));

    test(`a client that is gone ends a launched program that was ${state}`, () =>
        withClient(async (client) => {
            const noted = note();
            const pid = await launched(client, [noted.file, 'tidy'], configure(client));
            await reach(client, noted);
            client.stopAdapter();
            await noted.says('tidied');
            await until(() => !isThere(pid), () => 'still there');
        }));
}

test('a program that is terminated by no handler says so', () => withClient(async (client) => {
    const noted = note();
    await launched(client, [noted.file]);
    await noted.says('begun');
    await client.send('terminate', {});
    assert.equal((await client.next('exited')).exitCode, 128 + 15);
    await client.next('terminated');
}));

test('disconnecting before anything is launched ends the adapter', () =>
    withClient(async (client) => {
        await client.initialize();
        await client.send('disconnect', {});
        client._adapterProcess.stdin.end();
        await client.closed;
    }));

test('the adapter ends when its client has', () => withClient(async (client) => {
    await client.launch({ program: program('print 1\n') });
    await client.next('terminated');
    await client.send('disconnect', {});
    client._adapterProcess.stdin.end();
    await client.closed;
}));

async function attached(options, use) {
    const noted = note();
    const service = new Listening(LASTING, [], [noted.file, ...options]);
    try {
        const port = await service.port();
        await noted.says('begun');
        await withClient(async (client) => {
            await client.begin('attach', { port });
            await client.breakAt(LASTING, line(LASTING, '# turn'));
            await client.next('stopped');
            await use(client, service, noted);
        });
    } finally {
        await service.kill();
    }
}

test('disconnecting leaves a program that was attached to', () =>
    attached([], async (client, service, noted) => {
        await client.send('disconnect', {});
        fs.appendFileSync(noted.file, 'end\n');
        await noted.says('over');
        assert.equal(await service.ended, 0);
    }));

test('disconnecting can end a program that was attached to', () =>
    attached([], async (client, service, noted) => {
        await client.send('disconnect', { terminateDebuggee: true });
        await service.ended;
        assert.equal(noted.read(), 'begun\n');
    }));

test('a program that was attached to is terminated and may tidy up', () =>
    attached(['tidy'], async (client, service, noted) => {
        await client.send('terminate', {});
        assert.equal((await client.next('exited')).exitCode, 9);
        await client.next('terminated');
        assert.equal(await service.ended, 9);
        assert.equal(noted.read(), 'begun\ntidied\n');
    }));
