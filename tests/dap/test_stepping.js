'use strict';
// Going on from a stop: steps, pauses and jumps.

const test = require('node:test');
const assert = require('node:assert');
const { withClient, program, line } = require('./lib/client');

const COUNTING = program(`
def double(number):
    twice = number * 2  # in double
    return twice  # return

total = 0  # first
for number in range(5):
    total += double(number)  # call
print total  # print
`);

test('stepping goes over, into and out of calls', () =>
    withClient(async (client) => {
        const at = (mark) => line(COUNTING, mark);
        await client.launch({ program: COUNTING, stopOnEntry: true });
        assert.equal(await client.stop(), `entry <module>:1`);
        assert.equal(await client.step('next'), `step <module>:${at('# first')}`);
        assert.equal(await client.step('next'), `step <module>:${at('# first') + 1}`);
        assert.equal(await client.step('next'), `step <module>:${at('# call')}`);
        assert.equal(await client.step('stepIn'), `step double:${at('# in double')}`);
        assert.equal(await client.step('next'), `step double:${at('# return')}`);
        // The rest of the caller's line is still to be run.
        assert.equal(await client.step('next'), `step <module>:${at('# call')}`);
        assert.equal((await client.variable('(return) double')).value, '0');
        assert.equal(await client.step('next'), `step <module>:${at('# first') + 1}`);
        assert.equal(await client.step('stepIn'), `step <module>:${at('# call')}`);
        assert.equal(await client.step('stepIn'), `step double:${at('# in double')}`);
        assert.equal(await client.step('stepOut'), `step <module>:${at('# call')}`);
        await client.go();
        assert.equal(await client.outputs(), '20\n');
    }));

test('a breakpoint on the way ends a step', () => withClient(async (client) => {
    await client.launchTo(COUNTING, ['# call', '# return']);
    assert.equal(await client.step('next'), `breakpoint double:${line(COUNTING, '# return')}`);
    assert.equal(await client.step('stepOut'), `step <module>:${line(COUNTING, '# call')}`);
    // A line that a step would have ended at anyway is its breakpoint's.
    await client.step('next');
    assert.equal(await client.step('next'), `breakpoint <module>:${line(COUNTING, '# call')}`);
}));

test('stepping off the end of a program ends it', () => withClient(async (client) => {
    await client.launchTo(COUNTING, '# print');
    await client.send('next', { threadId: 1 });
    assert.equal((await client.next('exited')).exitCode, 0);
    assert.equal(await client.outputs(), '20\n');
}));

const CALLING_BACK = program(`
import bisect

class Key(object):
    def __init__(self, number):
        self.number = number  # in init

    def __lt__(self, other):
        return self.number < other.number  # in less

def generate():
    yield 1  # first yield
    yield 2

keys = [Key(3)]
bisect.insort(keys, Key(1))  # insort
found = sorted(keys, key=lambda key: -key.number)  # sort
for one in generate():  # loop
    print one  # body
print 'over'
`);

test('library code is stepped over to what it calls back under justMyCode', () =>
    withClient(async (client) => {
        const at = (mark) => line(CALLING_BACK, mark);
        await client.launchTo(CALLING_BACK, '# insort');
        assert.equal(await client.step('stepIn'), `step __init__:${at('# in init')}`);
        assert.equal(await client.step('stepOut'), `step <module>:${at('# insort')}`);
        assert.equal(await client.step('stepIn'), `step __lt__:${at('# in less')}`);
        assert.equal(await client.step('stepOut'), `step <module>:${at('# insort')}`);
        assert.equal(await client.step('next'), `step <module>:${at('# sort')}`);
        assert.equal(await client.step('stepIn'), `step <lambda>:${at('# sort')}`);
        assert.equal(await client.step('stepOut'), `step <module>:${at('# sort')}`);
    }));

test('generators are stepped into and out of', () => withClient(async (client) => {
    const at = (mark) => line(CALLING_BACK, mark);
    await client.launchTo(CALLING_BACK, '# loop');
    await client.breakAt(CALLING_BACK);
    assert.equal(await client.step('stepIn'), `step generate:${at('# first yield')}`);
    assert.equal(await client.step('stepOut'), `step <module>:${at('# loop')}`);
    assert.equal((await client.variable('(return) generate')).value, '1');
    assert.equal(await client.step('next'), `step <module>:${at('# body')}`);
    assert.equal(await client.step('next'), `step <module>:${at('# loop')}`);
    assert.equal(await client.step('next'), `step <module>:${at('# body')}`);
}));

const WITH_LIBRARY = program(`
import textwrap
shown = textwrap.dedent('  a')  # dedent
print shown  # after
`);

test('library code is stepped over under justMyCode', () => withClient(async (client) => {
    await client.launchTo(WITH_LIBRARY, '# dedent');
    assert.equal(await client.step('stepIn'), `step <module>:${line(WITH_LIBRARY, '# after')}`);
}));

const CALLED_BY_LIBRARY = program(`
import threading
def first():
    return 1  # first
def second():
    return 2  # second
class Both(threading.Thread):
    run = lambda self: threading.Thread.run(self)  # run
def main():
    threading.Thread(target=first).run()  # start
    Both(target=second).run()
    return 3  # end
main()
`);

test('steps go through library code to what it calls and come out of it under justMyCode', () =>
    withClient(async (client) => {
        const at = (mark) => line(CALLED_BY_LIBRARY, mark);
        await client.launchTo(CALLED_BY_LIBRARY, '# start');
        assert.equal(await client.step('stepIn'), `step first:${at('# first')}`);
        assert.equal(await client.step('next'), `step main:${at('# start') + 1}`);
        assert.equal(await client.step('stepIn'), `step <lambda>:${at('# run')}`);
        assert.equal(await client.step('stepIn'), `step second:${at('# second')}`);
        // The function between has nothing left to do but return.
        assert.equal(await client.step('stepOut'), `step main:${at('# start') + 1}`);
        assert.equal(await client.step('stepIn'), `step main:${at('# end')}`);
    }));

test('library code is stepped into without justMyCode', () => withClient(async (client) => {
    await client.launchTo(WITH_LIBRARY, '# dedent', { justMyCode: false });
    assert.match(await client.step('stepIn'), /^step dedent:/);
    const [inner] = await client.stack(1, 1);
    assert.equal(inner.presentationHint, undefined);
    assert.match(inner.source.path, /textwrap\.py$/);
}));

test('a breakpoint in library code stops, whose code is then stepped through', () =>
    withClient(async (client) => {
        await client.launchTo(WITH_LIBRARY, '# dedent');
        await client.send('setFunctionBreakpoints', { breakpoints: [{ name: 'textwrap.dedent' }] });
        await client.go();
        assert.match(await client.stop(), /^function breakpoint dedent:/);
        assert.match(await client.step('next'), /^step dedent:/);
        assert.match(await client.step('stepIn'), /^step (?!<module>)/);
    }));

const RUNNING = program(`
import sys
print 'ready'
turns = 0
running = True
while running:
    turns += 1  # turn
print 'over'
`);

test('a running program is paused and goes on', () => withClient(async (client) => {
    await client.launch({ program: RUNNING });
    await client.next('output', (body) => body.output.includes('ready'));
    await assert.rejects(client.stack(1), /running/);
    for (let round = 0; round < 2; round++) {
        await client.send('pause', { threadId: 1 });
        const stopped = await client.next('stopped');
        assert.equal(stopped.reason, 'pause');
        assert.equal(stopped.threadId, 1);
        assert.match(await client.place(), /^<module>:[56]$/);
        assert.ok(!client.has('stopped'));
        await client.go();
    }
    await client.send('pause', { threadId: 1 });
    await client.next('stopped');
    // Twice is once.
    await client.send('pause', { threadId: 1 });
    await client.evaluate('running = False', 'repl');
    await client.go();
    assert.equal((await client.next('exited')).exitCode, 0);
    assert.ok(!client.has('stopped'));
}));

test('what is asked of a running program is refused', () => withClient(async (client) => {
    await client.launch({ program: RUNNING });
    await client.next('output', (body) => body.output.includes('ready'));
    for (const command of ['next', 'stepIn', 'stepOut', 'continue']) {
        await assert.rejects(client.send(command, { threadId: 1 }), /running/, command);
    }
    await assert.rejects(client.send('evaluate', { expression: '1' }), /running/);
}));

test('a breakpoint set while the program runs takes effect at once', () =>
    withClient(async (client) => {
        const turn = line(RUNNING, '# turn');
        await client.launch({ program: RUNNING });
        await client.next('output', (body) => body.output.includes('ready'));
        const [breakpoint] = await client.breakAt(RUNNING, turn);
        assert.equal(breakpoint.verified, true);
        assert.equal(await client.stop(), `breakpoint <module>:${turn}`);
        await client.breakAt(RUNNING);
        await client.go();
        await client.evaluate('1').then(() => assert.fail('stopped'), () => {});
        assert.ok(!client.has('stopped'));
    }));

const JUMPING = program(`
def run():
    first = 1  # first
    first = 2  # second
    # a comment
    third = first  # third
    return third

print run()  # call
print 'x'  # x
`);

async function targets(client, file, mark) {
    return (await client.send('gotoTargets', {
        source: { path: file }, line: line(file, mark) })).body.targets;
}

test('a frame is made to go on at another line', () => withClient(async (client) => {
    await client.launchTo(JUMPING, ['# second', '# third']);
    let [target] = await targets(client, JUMPING, '# a comment');
    assert.equal(target.line, line(JUMPING, '# third'));
    await client.send('goto', { threadId: 1, targetId: target.id });
    assert.equal(await client.stop(), `goto run:${line(JUMPING, '# third')}`);
    // Back again.
    [target] = await targets(client, JUMPING, '# first');
    await client.send('goto', { threadId: 1, targetId: target.id });
    assert.equal(await client.stop(), `goto run:${line(JUMPING, '# first')}`);
    assert.equal(await client.step('next'), `breakpoint run:${line(JUMPING, '# second')}`);
    [target] = await targets(client, JUMPING, '# third');
    await client.send('goto', { threadId: 1, targetId: target.id });
    await client.next('stopped');
    await client.breakAt(JUMPING);
    await client.go();
    assert.equal(await client.outputs(), '1\nx\n');
}));

test('no frame is made to go on where it cannot', () => withClient(async (client) => {
    await client.launchTo(JUMPING, '# second');
    assert.deepEqual(await targets(client, JUMPING, '# x'), []);
    assert.deepEqual(await targets(client, COUNTING, '# first'), []);
    const [target] = await targets(client, JUMPING, '# third');
    await client.step('next');
    // What was offered at an earlier stop.
    await assert.rejects(client.send('goto', { threadId: 1, targetId: target.id }), /gone on/);
    await assert.rejects(client.send('goto', { threadId: 1, targetId: 12345 }), /gone on/);
}));

test('a jump into a loop is refused', () => withClient(async (client) => {
    const file = program('x = 0  # here\nfor i in range(2):\n    x += i  # inside\nprint x\n');
    await client.launchTo(file, '# here');
    for (const target of await targets(client, file, '# inside')) {
        await assert.rejects(client.send('goto', { threadId: 1, targetId: target.id }), /jump/);
        assert.equal(await client.place(), '<module>:1');
    }
    await client.go();
    assert.equal(await client.outputs(), '1\n');
}));
