'use strict';
// docs/dap.md names every request and event of the protocol, and what it says of them is so.

const test = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const { withClient, program, ROOT, fromAdapter } = require('./lib/client');
const { Listening, connect, frame, until } = require('./lib/listening');

const TEXT = fs.readFileSync(path.join(ROOT, 'docs', 'dap.md'), 'utf8');

// The rows of the table under this heading: what stands in the first two columns.
function table(heading) {
    const rows = {};
    const [, body] = new RegExp(`\\| ${heading} \\|.*\\n\\|[-|]+\\|\\n((?:\\|.*\\n)+)`).exec(TEXT);
    for (const row of body.trim().split('\n')) {
        const [, name, second] = row.split('|').map((cell) => cell.trim());
        rows[name.replace(/`/g, '')] = second;
    }
    return rows;
}

// Those that the protocol's types name, but for what their names are derived from.
function named(kind) {
    return Object.keys(fromAdapter.schema.definitions)
        .map((name) => new RegExp(`^DebugProtocol\\.(\\w+)${kind}$`).exec(name))
        .filter(Boolean)
        .map(([, name]) => name[0].toLowerCase() + name.slice(1))
        .sort();
}

const requests = table('request');
const ofAdapter = ['runInTerminal', 'startDebugging'];

test('every request is listed', () => {
    assert.deepEqual([...Object.keys(requests), ...ofAdapter].sort(), named('Request'));
    assert.ok(Object.values(requests).every((word) => ['yes', 'no'].includes(word)));
});

test('every event is listed', () => {
    const events = table('event');
    assert.deepEqual(Object.keys(events).sort(), named('Event'));
});

test('what is announced is what is listed', () => withClient(async (client) => {
    const announced = await client.initialize();
    for (const name of Object.keys(requests)) {
        const capital = name[0].toUpperCase() + name.slice(1);
        for (const flag of [`supports${capital}Request`, `supports${capital}`]) {
            if (flag in announced) {
                assert.equal(announced[flag] ? 'yes' : 'no', requests[name], flag);
            }
        }
    }
    assert.ok(announced.supportsTerminateRequest && announced.supportTerminateDebuggee);
}));

test('requests that are not supported are refused, the others are known', async () => {
    const service = new Listening(program('import time\nwhile True:\n    time.sleep(0.01)\n'));
    try {
        const socket = await connect(await service.port());
        let seq = 0;
        const answer = async (command, args) => {
            seq += 1;
            socket.write(frame({ seq, type: 'request', command, arguments: args }));
            const mark = new RegExp(`\\{[^\\r]*"request_seq": ${seq}\\b[^\\r]*\\}(?=Content|$)`);
            await until(() => mark.test(socket.received), () => `no answer to ${command}`);
            return mark.exec(socket.received)[0];
        };
        await answer('initialize', { adapterID: 'x' });
        await answer('attach', { token: await service.token() });
        for (const [name, word] of Object.entries(requests)) {
            if (!['initialize', 'attach', 'launch', 'disconnect', 'terminate'].includes(name)) {
                const isUnknown = /there is no such request/.test(await answer(name, {}));
                assert.equal(isUnknown ? 'no' : 'yes', word, name);
            }
        }
        socket.destroy();
    } finally {
        await service.kill();
    }
});

test('every attribute is listed', () => {
    const manifest = JSON.parse(fs.readFileSync(
        path.join(ROOT, 'editors', 'vscode', 'package.json'), 'utf8'));
    const described = (request) => Object.keys(
        manifest.contributes.debuggers[0].configurationAttributes[request].properties).sort();
    const tables = TEXT.split(/^Of (?=`launch`|`attach`|both)/m).slice(1)
        .map((part) => [...part.split('\n\n')[1].matchAll(/^\| `(\w+)`/gm)].map((row) => row[1]));
    assert.deepEqual([...tables[0], ...tables[2]].sort(), described('launch'));
    assert.deepEqual([...tables[1], ...tables[2]].sort(), described('attach'));
});
