'use strict';
// Processes that a program starts: in sessions of their own, or in the one of the program.

const test = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const { withClient, program, line, scratch } = require('./lib/client');
const { until } = require('./lib/listening');

const OF_OTHERS = 2 ** 30;

const FORKING = program(`
import os, sys
def work(number):
    twice = number * 2  # child
    return twice
child = os.fork()
if not child:
    result = work(21)
    print 'child', result
    sys.exit(5)
print 'parent'
sys.stdout.flush()
if 'wait' in sys.argv:
    print os.waitpid(child, 0)[1] >> 8
`);
const WORKER = `
import sys
def work(words):
    count = len(words)  # worker
    return count
sys.exit(work(sys.argv))
`;

// A program that starts these files beside it, one after the other, with two words.
function starting(...names) {
    const folder = scratch();
    for (const name of names) {
        program(WORKER, name, folder);
    }
    const file = program(`
import os, subprocess, sys
folder = os.path.dirname(sys.argv[0])
for name in sys.argv[1:]:
    print subprocess.call([sys.executable, os.path.join(folder, name), 'a', 'b c'])
print 'over'
`, 'starting.py', folder);
    return { file, args: names, others: names.map((name) => path.join(folder, name)) };
}

// Someone who begins the sessions that the adapter asks for. answer: what becomes of the request.
class Sessions {
    constructor(client, answer = async () => {}) {
        this.asked = [];
        client.reverse.startDebugging = (args) => {
            this.asked.push(args);
            return answer();
        };
    }

    // The arguments of the next request.
    async next() {
        await until(() => this.asked.length, () => 'no startDebugging');
        return this.asked.shift();
    }

    // Runs the test with a client of its own, which has an adapter of its own, for the next one.
    async withNext(configure, use) {
        const { request, configuration } = await this.next();
        await withClient(async (session) => {
            await session.begin(request, configuration, () => configure(session));
            await use(session, configuration);
        });
    }
}

const CAN_START = { capabilities: { supportsStartDebuggingRequest: true } };

// The number in "NAME [PROCESS]".
const processOf = (name) => Number(/ \[(\d+)\]$/.exec(name)[1]);

// Waits for a stop of a process that shares the session; checks how that is told.
async function mergedStop(client, place) {
    const { reason, threadId, allThreadsStopped } = await client.next('stopped');
    assert.ok(threadId >= OF_OTHERS);
    assert.equal(allThreadsStopped, false);
    assert.equal(`${reason} ${await client.place(threadId)}`, place);
    const { threads } = (await client.send('threads')).body;
    const { name } = threads.find((thread) => thread.id === threadId);
    assert.match(name, /^MainThread \[\d+\]$/);
    return { threadId, pid: processOf(name) };
}

async function local(client, threadId, name) {
    const [frame] = await client.stack(threadId, 1);
    const all = await client.variables(await client.scope('Locals', frame.id));
    return all.find((one) => one.name === name).value;
}

test('a forked process has a session of its own', () => withClient(async (client) => {
    const sessions = new Sessions(client);
    const settings = { justMyCode: false, evaluationTimeout: 7 };
    await client.launch({ program: FORKING, type: 'sorrel', ...settings },
        () => client.breakAt(FORKING, line(FORKING, '# child')));
    await sessions.withNext((session) => session.breakAt(FORKING, line(FORKING, '# child')),
        async (session, { name, type, socket, ...rest }) => {
            assert.match(name, /^program\.py \[\d+\]$/);
            assert.equal(type, 'sorrel');
            assert.ok(fs.statSync(socket).isSocket());
            assert.deepEqual(rest, settings);
            assert.equal(await session.stop(), `breakpoint work:${line(FORKING, '# child')}`);
            const { startMethod, systemProcessId } = await session.next('process');
            assert.deepEqual([startMethod, systemProcessId], ['attach', processOf(name)]);
            // The parent has ended by itself; what it is a session of has not.
            assert.equal((await client.next('exited')).exitCode, 0);
            assert.equal(client.has('stopped') || client.has('terminated'), false);
            assert.deepEqual((await session.stack()).map((frame) => frame.name),
                ['work', '<module>']);
            assert.equal((await session.variable('number')).value, '21');
            assert.equal(await session.step('next'), `step work:${line(FORKING, 'return twice')}`);
            assert.equal((await session.variable('twice')).value, '42');
            await session.go();
            assert.equal((await session.next('exited')).exitCode, 5);
            await session.next('terminated');
        });
    assert.equal(await client.outputs(), 'parent\nchild 42\n');
    assert.equal(client.written('important'), '');
}, CAN_START));

test('a forked process shares the session of a client that begins no others', () =>
    withClient(async (client) => {
        await client.launch({ program: FORKING, args: ['wait'] },
            () => client.breakAt(FORKING, line(FORKING, '# child')));
        const place = `breakpoint work:${line(FORKING, '# child')}`;
        const { threadId, pid } = await mergedStop(client, place);
        assert.equal(await local(client, threadId, 'number'), '21');
        const { threads } = (await client.send('threads')).body;
        assert.ok(threads.some((thread) => thread.name === 'MainThread' && thread.id === 1));
        assert.notEqual((await client.next('process')).systemProcessId, pid);
        await client.send('next', { threadId });
        await client.next('stopped', (body) => body.threadId === threadId);
        assert.equal(await local(client, threadId, 'twice'), '42');
        await client.go(threadId);
        const gone = await client.next('thread', (body) => body.reason === 'exited');
        assert.equal(gone.threadId, threadId);
        assert.equal((await client.next('exited')).exitCode, 0);
        assert.equal(await client.outputs(), 'parent\nchild 42\n5\n');
    }));

test('a forked process shares the session of a client that refuses another one', () =>
    withClient(async (client) => {
        const sessions = new Sessions(client, async () => {
            throw new Error('no more sessions');
        });
        await client.launch({ program: FORKING, args: ['wait'] }, () => client.breakAt(
            FORKING, line(FORKING, '# child')));
        const { pid } = await mergedStop(client, `breakpoint work:${line(FORKING, '# child')}`);
        const { configuration } = await sessions.next();
        assert.equal(processOf(configuration.name), pid);
        await client.send('disconnect', {});
        assert.equal(client.written('important'), '');
    }, CAN_START));

test('a forked process shares the session of a client that does not answer', () =>
    withClient(async (client) => {
        let answer;
        const sessions = new Sessions(client, () => new Promise((resolve) => {
            answer = resolve;
        }));
        await client.launch({ program: FORKING, args: ['wait'] }, () => client.breakAt(
            FORKING, line(FORKING, '# child')));
        const { request, configuration } = await sessions.next();
        const { threadId } = await mergedStop(
            client, `breakpoint work:${line(FORKING, '# child')}`);
        // Now it does. The session that it begins is told why there is nothing for it.
        answer();
        await withClient(async (late) => {
            await late.initialize();
            await assert.rejects(late.send(request, configuration),
                /another client is debugging this program/);
        });
        assert.equal(await local(client, threadId, 'number'), '21');
        await client.go(threadId);
        assert.equal(await client.outputs(), 'parent\nchild 42\n5\n');
        assert.equal(client.written('important'), '');
    }, CAN_START));

test('a program that the program starts has a session of its own', () =>
    withClient(async (client) => {
        const { file, args, others: [worker] } = starting('worker.py');
        const sessions = new Sessions(client);
        await client.launch({ program: file, args },
            () => client.breakAt(worker, line(worker, '# worker')));
        await sessions.withNext((session) => session.breakAt(worker, line(worker, '# worker')),
            async (session, { name }) => {
                assert.match(name, /^worker\.py \[\d+\]$/);
                assert.equal(await session.stop(), `breakpoint work:${line(worker, '# worker')}`);
                assert.equal((await session.evaluate('words[1:]')).result, "['a', 'b c']");
                await session.go();
                assert.equal((await session.next('exited')).exitCode, 3);
            });
        assert.equal(await client.outputs(), '3\nover\n');
    }, CAN_START));

test('a program that the program starts shares its session', () => withClient(async (client) => {
    const { file, args, others: [worker] } = starting('worker.py');
    await client.launch({ program: file, args },
        () => client.breakAt(worker, line(worker, '# worker')));
    const { threadId } = await mergedStop(client, `breakpoint work:${line(worker, '# worker')}`);
    assert.equal(await local(client, threadId, 'words'), `['${worker}', 'a', 'b c']`);
    await client.go(threadId);
    assert.equal(await client.outputs(), '3\nover\n');
}));

for (const [how, options] of [['could begin', CAN_START], ['could share', {}]]) {
    test(`nothing comes of what is not wanted of processes that a client ${how} a session with`,
        () => withClient(async (client) => {
            const sessions = new Sessions(client);
            const { file, args, others: [worker] } = starting('worker.py');
            await client.launch({ program: file, args, subProcess: false },
                () => client.breakAt(worker, line(worker, '# worker')));
            assert.equal(await client.outputs(), '3\nover\n');
            assert.equal(sessions.asked.length, 0);
            assert.equal(client.has('stopped'), false);
        }, options));
}

test('what is debugged is chosen by patterns of names', () => withClient(async (client) => {
    const { file, args, others } = starting('worker_1.py', 'other.py', 'worker_2.py');
    const sessions = new Sessions(client);
    const setAll = async (session) => {
        for (const other of others) {
            await session.breakAt(other, line(other, '# worker'));
        }
    };
    await client.launch({ program: file, args, autoAttach: ['no*', 'work*.py'] },
        () => setAll(client));
    for (const expected of ['worker_1.py', 'worker_2.py']) {
        await sessions.withNext(setAll, async (session, { name }) => {
            assert.equal(name.split(' ')[0], expected);
            assert.equal((await session.next('stopped')).reason, 'breakpoint');
            await session.go();
            await session.next('terminated');
        });
    }
    assert.equal(await client.outputs(), '3\n3\n3\nover\n');
    assert.equal(sessions.asked.length, 0);
}, CAN_START));

for (const isLazy of [false, true]) {
    test(`a process that runs on is told of ${isLazy ? 'when it stops' : 'soon'}`, () =>
        withClient(async (client) => {
            const file = program(`
import os, sys, time
child = os.fork()
if child:
    sys.exit(os.waitpid(child, 0)[1] >> 8)
print 'runs'
sys.stdout.flush()
while not os.path.exists(sys.argv[1]):
    time.sleep(0.01)
over = 3  # over
sys.exit(over)
`);
            const signal = path.join(scratch(), 'over');
            const sessions = new Sessions(client);
            const atOver = (session) => session.breakAt(file, line(file, '# over'));
            await client.launch({ program: file, args: [signal], lazySubProcess: isLazy },
                () => atOver(client));
            await client.next('output', (body) => body.output.includes('runs'));
            if (isLazy) {
                // A process that has come to stay would be told of by then.
                await new Promise((resolve) => setTimeout(resolve, 3000));
                assert.equal(sessions.asked.length, 0);
            } else {
                await until(() => sessions.asked.length, () => 'it is not told of');
            }
            fs.writeFileSync(signal, '');
            await sessions.withNext(atOver, async (session) => {
                assert.equal(await session.stop(), `breakpoint <module>:${line(file, '# over')}`);
                await session.go();
                assert.equal((await session.next('exited')).exitCode, 3);
            });
            assert.equal((await client.next('exited')).exitCode, 3);
            await client.next('terminated');
        }, CAN_START));
}
