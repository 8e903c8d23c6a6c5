'use strict';
// Programs with several threads: all of them stop, or one alone.

const test = require('node:test');
const assert = require('node:assert');
const { withClient, program, line } = require('./lib/client');

const TWO = program(`
import threading, time
turns = {'one': 0, 'two': 0}
running = True

def work(name):
    while running:
        turns[name] += 1  # work
        time.sleep(0.001)

threads = [threading.Thread(target=work, name=name, args=(name,)) for name in ('one', 'two')]
for thread in threads:
    thread.start()
for thread in threads:
    thread.join()  # join
print 'over'
`);
const WORK = line(TWO, '# work');

async function ids(client) {
    const { threads } = (await client.send('threads')).body;
    return Object.fromEntries(threads.map((thread) => [thread.name, thread.id]));
}

// A breakpoint in the thread of this name, once both are at work.
function breakIn(name) {
    return { line: WORK, condition: `name == '${name}' and turns['one'] and turns['two']` };
}

test('threads are told of when they begin and end', () => withClient(async (client) => {
    const file = program(`
import threading, time
def work():
    pass  # work
other = threading.Thread(target=work, name='other')
other.start()
other.join()
while True:
    time.sleep(0.001)
`);
    await client.launchTo(file, '# work');
    const known = await ids(client);
    assert.deepEqual(Object.keys(known).sort(), ['MainThread', 'other']);
    const begun = await client.next('thread', (body) => body.threadId === known.other);
    assert.equal(begun.reason, 'started');
    await client.go(known.other);
    const ended = await client.next('thread', (body) => body.threadId === known.other);
    assert.equal(ended.reason, 'exited');
    assert.deepEqual(await ids(client), { MainThread: 1 });
}));

test('all threads stop with one, and can be looked at', () => withClient(async (client) => {
    await client.launch({ program: TWO }, () => client.breakAt(TWO, breakIn('one')));
    const stopped = await client.next('stopped');
    assert.equal(stopped.allThreadsStopped, true);
    const known = await ids(client);
    assert.equal(stopped.threadId, known.one);
    const turns = async () => (await client.send('evaluate', { expression: 'turns["two"]',
        frameId: (await client.stack(known.one, 1))[0].id })).body.result;
    // The other thread waits as soon as it has something to do.
    let before;
    do {
        before = await turns();
        await new Promise((resolve) => setTimeout(resolve, 100));
    } while (await turns() !== before);
    const [two] = await client.stack(known.two);
    assert.deepEqual([two.name, two.source.path], ['work', TWO]);
    const name = await client.send('evaluate', { expression: 'name', frameId: two.id });
    assert.equal(name.body.result, "'two'");
    const main = await client.stack(known.MainThread);
    // It may not have come to wait for them yet.
    assert.equal(main.at(-1).name, '<module>');
    assert.ok(main.at(-1).line > line(TWO, 'threads = ')
        && main.at(-1).line <= line(TWO, '# join'), main.at(-1).line);
    await client.send('evaluate', { expression: 'globals().update(running=False)',
        frameId: two.id });
    const { allThreadsContinued } = (await client.go(known.two)).body;
    assert.equal(allThreadsContinued, true);
    assert.equal(await client.outputs(), 'over\n');
}));

test('a step is of its thread', () => withClient(async (client) => {
    await client.launch({ program: TWO }, () => client.breakAt(TWO, breakIn('two')));
    const { threadId } = await client.next('stopped');
    await client.breakAt(TWO);
    for (let step = 0; step < 20; step++) {
        await client.send('next', { threadId });
        const stopped = await client.next('stopped');
        assert.deepEqual([stopped.threadId, stopped.reason], [threadId, 'step']);
    }
    const known = await ids(client);
    for (const command of ['next', 'stepIn', 'stepOut']) {
        await assert.rejects(client.send(command, { threadId: known.MainThread }),
            /not stopped/, command);
    }
}));

test('each thread comes to its breakpoint', () => withClient(async (client) => {
    await client.launch({ program: TWO }, () => client.breakAt(TWO, WORK));
    const seen = new Set();
    for (let stops = 0; stops < 200 && seen.size < 2; stops++) {
        const { threadId } = await client.next('stopped');
        seen.add(threadId);
        await client.go(threadId);
    }
    const known = await ids(client);
    assert.deepEqual([...seen].sort(), [known.one, known.two].sort());
}));

test('one thread stops while the others run on', () => withClient(async (client) => {
    await client.launch({ program: TWO, stopAllThreads: false },
        () => client.breakAt(TWO, breakIn('one')));
    const stopped = await client.next('stopped');
    assert.equal(stopped.allThreadsStopped, false);
    const known = await ids(client);
    assert.equal(stopped.threadId, known.one);
    const frameId = (await client.stack(known.one, 1))[0].id;
    const evaluate = async (expression) => (await client.send('evaluate', {
        expression, frameId })).body.result;
    const before = Number(await evaluate('turns["two"]'));
    while (Number(await evaluate('turns["two"]')) < before + 3) {
        await new Promise((resolve) => setTimeout(resolve, 10));
    }
    await assert.rejects(client.stack(known.two), /running/);
    await client.send('next', { threadId: known.one });
    const stepped = await client.next('stopped');
    assert.deepEqual([stepped.threadId, stepped.reason, stepped.allThreadsStopped],
        [known.one, 'step', false]);
    await client.breakAt(TWO);
    await client.send('evaluate', { expression: 'globals().update(running=False)',
        frameId: (await client.stack(known.one, 1))[0].id });
    const { allThreadsContinued } = (await client.go(known.one)).body;
    assert.equal(allThreadsContinued, false);
    assert.equal(await client.outputs(), 'over\n');
}));

test('one thread is paused while the others run on', () => withClient(async (client) => {
    await client.launch({ program: TWO, stopAllThreads: false },
        () => client.breakAt(TWO, breakIn('one')));
    await client.next('stopped');
    await client.breakAt(TWO);
    const known = await ids(client);
    await client.go(known.one);
    await client.send('pause', { threadId: known.two });
    const stopped = await client.next('stopped');
    assert.deepEqual([stopped.threadId, stopped.reason, stopped.allThreadsStopped],
        [known.two, 'pause', false]);
    await client.go(known.two);
    await assert.rejects(client.send('pause', { threadId: 12345 }), /no thread/);
}));

test('a thread that was started behind the library is debugged, too', () =>
    withClient(async (client) => {
        const file = program(`
import thread
done = thread.allocate_lock()
done.acquire()
def work():
    pass  # work
    done.release()
thread.start_new_thread(work, ())
done.acquire()
`);
        await client.launchTo(file, '# work');
        const known = Object.values(await ids(client));
        assert.equal(known.length, 2);
    }));
