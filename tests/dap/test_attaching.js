'use strict';
// Programs that listen, and the clients that come to them.

const test = require('node:test');
const assert = require('node:assert');
const net = require('node:net');
const { withClient } = require('./lib/client');
const { connect } = require('./lib/listening');
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
