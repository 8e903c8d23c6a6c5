'use strict';
// Programs that listen, and the clients that come to them.

const test = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const net = require('node:net');
const path = require('node:path');
const { withClient, program, line, scratch } = require('./lib/client');
const { Listening } = require('./lib/listening');
const { SERVICE, withService, stopsInBothThreads } = require('./lib/service');

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
    withService(async (service, port, token) => {
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
            await client.begin('attach', { justMyCode: true, token });
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
            await withClient(async (second) => {
                await second.initialize();
                await assert.rejects(second.send('attach', { port }),
                    /another client is debugging this program/);
            });
            await stopsInBothThreads(client);
        });
    }));

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

test('a program that listens at a socket in the file system is attached to', async () => {
    const socket = path.join(scratch(), 'service.sock');
    const file = program('import time\nwhile True:\n    time.sleep(0.001)  # turn\n');
    const service = new Listening(file, [], [], `unix:${socket}`);
    try {
        await service.said(/listening on unix:(.*)\n/);
        assert.equal(fs.statSync(socket).mode & 0o777, 0o600);
        await withClient(async (client) => {
            await client.begin('attach', { socket },
                () => client.breakAt(file, line(file, '# turn')));
            assert.equal(await client.stop(), `breakpoint <module>:${line(file, '# turn')}`);
        });
    } finally {
        await service.kill();
    }
});

test('a program with a token of its own is attached to', async () => {
    const tokenFile = path.join(scratch(), 'token');
    const file = program('import time\nwhile True:\n    time.sleep(0.001)  # turn\n');
    const service = new Listening(file, ['--token-file', tokenFile]);
    try {
        const port = await service.port();
        await withClient(async (client) => {
            await client.initialize();
            await assert.rejects(client.send('attach', { port }), /the token is missing/);
        });
        await withClient((client) => client.begin('attach', { port, tokenFile }));
        const token = fs.readFileSync(tokenFile, 'utf8').trim();
        await withClient((client) => client.begin('attach', { port, token }));
    } finally {
        await service.kill();
    }
});
