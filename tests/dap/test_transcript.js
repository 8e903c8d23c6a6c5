'use strict';
// A long session, recorded and replayed with its frames cut everywhere: what a client says has the
// same meaning however it arrives.

const test = require('node:test');
const assert = require('node:assert');
const { spawn } = require('node:child_process');
const { withClient, program, line, patiently, MORVIK } = require('./lib/client');
const { Listening, connect } = require('./lib/listening');

// What the client says is the same each time: in each round the program does the same things, and
// numbers are given anew to each client.
const SERVICE = program(`
import sys, time
class Thing(object):
    def __init__(self):
        self.name = u'\\xe4\\u20ac'
        self.items = range(100)
    def __repr__(self):
        return 'Thing!'

def work(number):
    thing = Thing()
    text = 'work %d' % number  # work
    try:
        raise KeyError(text)
    except KeyError:
        pass
    return thing  # return

number = 0
running = True
while running:
    work(number)
    time.sleep(0.001)
`);
const WORK = line(SERVICE, '# work');

// The requests of a session, one after the other, each with what has to come before the next one.
async function session(client) {
    await client.breakAt(SERVICE, WORK);
    await client.send('setFunctionBreakpoints', { breakpoints: [{ name: 'none.such' }] });
    await client.send('setExceptionBreakpoints', { filters: ['uncaught'] });
    await client.send('configurationDone');
    await client.next('stopped');
    await client.send('threads');
    const frames = await client.stack();
    const frameId = frames[0].id;
    const { scopes } = (await client.send('scopes', { frameId })).body;
    const locals = await client.variables(scopes[0].variablesReference);
    await client.variables(locals.find((one) => one.name === 'thing').variablesReference,
        { start: 0, count: 10 });
    for (const expression of ['thing.name', 'u"\\xe4\u20ac\\n" * 3', '1 / 0', '(', '{"a": [1]}']) {
        await client.send('evaluate', { expression, frameId, context: 'watch' }).catch(() => {});
    }
    await client.send('evaluate', { expression: 'extra = "ä€"', frameId, context: 'repl' });
    await client.send('completions', { text: 'thing.na', column: 9, frameId });
    await client.send('next', { threadId: 1 });
    await client.next('stopped');
    await client.send('source', { source: { path: SERVICE }, sourceReference: 0 });
    await client.send('modules', { startModule: 0, moduleCount: 1 });
    await client.send('setExceptionBreakpoints', { filters: ['raised'] });
    await client.send('continue', { threadId: 1 });
    await client.next('stopped');
    await client.send('exceptionInfo', { threadId: 1 });
    await client.send('setExceptionBreakpoints', { filters: [] });
    await client.send('stepOut', { threadId: 1 });
    await client.next('stopped');
    await client.send('stackTrace', { threadId: 1, startFrame: 0, levels: 1 });
    await client.send('restartFrame', { frameId }).catch(() => {});
    await client.breakAt(SERVICE);
}

// What of a message is the same in each session; undefined where nothing is.
function lasting(message) {
    if (message.type === 'response') {
        const { seq, ...rest } = message;
        return rest;
    }
    return ['stopped', 'initialized'].includes(message.event) ? message.body || {} : undefined;
}

// The answers by the numbers of their requests, and the events in their order.
class Heard {
    constructor() {
        this.answers = {};
        this.events = [];
    }

    take(message) {
        const kept = lasting(message);
        if (message.type === 'response') {
            this.answers[message.request_seq] = kept;
        } else if (kept) {
            this.events.push(kept);
        }
    }

    counts() {
        return { answers: Object.keys(this.answers).length, events: this.events.length };
    }
}

// A session as the client's frames, each with the counts of what had been heard before it was sent,
// and everything that was heard.
async function record(port, token) {
    const frames = [];
    const heard = new Heard();
    await withClient(async (client) => {
        const dispatch = client.dispatch.bind(client);
        client.dispatch = (body) => {
            heard.take(JSON.parse(body));
            dispatch(body);
        };
        const { write } = client.outputStream;
        client.outputStream.write = (data, encoding) => {
            frames.push({ bytes: Buffer.from(data, encoding), after: heard.counts() });
            return write(data, encoding);
        };
        await client.initialize();
        await client.send('attach', { port, token });
        await client.next('initialized');
        await session(client);
        await client.send('disconnect', {});
        client.outputStream.write = write;
        client.stopAdapter();
    }, { port });
    return { frames, heard };
}

// The other side of a session: hears messages, and tells when enough of them have come.
class Listener {
    constructor(readable) {
        this.heard = new Heard();
        this.rest = Buffer.alloc(0);
        this.wanted = undefined;
        readable.on('data', (data) => {
            this.rest = Buffer.concat([this.rest, data]);
            for (let message = this.next(); message; message = this.next()) {
                this.heard.take(message);
            }
            this.look();
        });
    }

    next() {
        const end = this.rest.indexOf('\r\n\r\n');
        if (end < 0) {
            return undefined;
        }
        const length = Number(/Content-Length: (\d+)/.exec(this.rest.subarray(0, end))[1]);
        if (this.rest.length < end + 4 + length) {
            return undefined;
        }
        const message = JSON.parse(this.rest.subarray(end + 4, end + 4 + length));
        this.rest = this.rest.subarray(end + 4 + length);
        return message;
    }

    until(counts) {
        return patiently(new Promise((resolve) => {
            this.wanted = { counts, resolve };
            this.look();
        }), () => `not ${JSON.stringify(counts)} but ${JSON.stringify(this.heard)}`);
    }

    look() {
        const now = this.heard.counts();
        if (this.wanted && now.answers >= this.wanted.counts.answers
                && now.events >= this.wanted.counts.events) {
            this.wanted.resolve();
            this.wanted = undefined;
        }
    }
}

function pause() {
    return new Promise((resolve) => setImmediate(resolve));
}

// Ways to send the frames of a session, where heard(counts) resolves when as much has been heard.

async function byteByByte(frames, heard, write) {
    for (const { bytes, after } of frames) {
        await heard(after);
        for (const byte of bytes) {
            write(Buffer.of(byte));
            await pause();
        }
    }
}

// The end of a frame is only sent when the frame before it has been answered: its beginning has
// been read by then, since it came along with that.
function cutAt(position) {
    const cut = ({ bytes }) => Math.min(position, bytes.length - 1);
    return async (frames, heard, write) => {
        write(frames[0].bytes.subarray(0, cut(frames[0])));
        await pause();
        for (const [number, frame] of frames.entries()) {
            await heard(frame.after);
            const next = frames[number + 1];
            write(Buffer.concat([frame.bytes.subarray(cut(frame)),
                next ? next.bytes.subarray(0, cut(next)) : Buffer.alloc(0)]));
        }
    };
}

// All that need not wait for an event at once, but for the last request: who leaves need not be
// answered what has been asked before.
async function together(frames, heard, write) {
    const last = frames[frames.length - 1];
    for (let first = 0; first < frames.length - 1;) {
        const { events } = frames[first].after;
        let end = first;
        while (end < frames.length - 1 && frames[end].after.events === events) {
            end += 1;
        }
        await heard({ answers: 0, events });
        write(Buffer.concat(frames.slice(first, end).map((frame) => frame.bytes)));
        first = end;
    }
    await heard(last.after);
    write(last.bytes);
}

async function replay(recorded, readable, writable, way) {
    const listener = new Listener(readable);
    await way(recorded.frames, (counts) => listener.until(counts),
        (bytes) => writable.write(bytes));
    await listener.until(recorded.heard.counts());
    assert.deepEqual(listener.heard, recorded.heard);
}

async function replayToProgram(recorded, port, way) {
    const socket = await connect(port);
    socket.setNoDelay(true);
    await replay(recorded, socket, socket, way);
    await socket.hungUp;
}

async function withRecording(use) {
    const service = new Listening(SERVICE);
    try {
        const port = await service.port();
        const token = await service.token();
        // From the second time on nothing is loaded any more.
        await record(port, token);
        const recorded = await record(port, token);
        await use(recorded, port);
        assert.equal(service.status, undefined);
    } finally {
        await service.kill();
    }
}

test('a session is understood however its frames are cut', () =>
    withRecording(async (recorded, port) => {
        await replayToProgram(recorded, port, byteByByte);
        await replayToProgram(recorded, port, together);
        const longest = Math.max(...recorded.frames.map(({ bytes }) => bytes.length));
        for (let position = 1; position < longest; position++) {
            await replayToProgram(recorded, port, cutAt(position));
        }
    }));

for (const [what, way] of Object.entries({ 'byte by byte': byteByByte, together })) {
    test(`the adapter understands a session that is sent ${what}`, () =>
        withRecording(async (recorded) => {
            const adapter = spawn(MORVIK, ['dap'], { stdio: ['pipe', 'pipe', 'ignore'] });
            try {
                await replay(recorded, adapter.stdout, adapter.stdin, way);
            } finally {
                adapter.kill();
            }
        }));
}
