'use strict';
// Breakpoints in source files and at functions, with all that can be asked of them.

const test = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const { withClient, program, line, scratch } = require('./lib/client');

const COUNTING = program(`
def double(number):
    # Twice as much.
    return number * 2  # in double


for number in range(10):
    print double(number)  # call
`);
const IN_DOUBLE = line(COUNTING, '# in double');
const CALL = line(COUNTING, '# call');

// Goes on from stop to stop; returns the values of an expression at each of them.
async function valuesAtStops(client, expression) {
    const found = [];
    while (await client.nextStop()) {
        found.push((await client.evaluate(expression)).result);
        await client.go();
    }
    return found;
}

test('a breakpoint stops the program, which then goes on', () =>
    withClient(async (client) => {
        await client.launch({ program: COUNTING }, async () => {
            const [breakpoint] = await client.breakAt(COUNTING, CALL);
            assert.equal(breakpoint.verified, true);
            assert.equal(breakpoint.line, CALL);
        });
        const stopped = await client.next('stopped');
        assert.equal(stopped.reason, 'breakpoint');
        assert.equal(stopped.allThreadsStopped, true);
        assert.equal(stopped.hitBreakpointIds.length, 1);
        assert.equal(await client.place(stopped.threadId), `<module>:${CALL}`);
        assert.equal((await client.evaluate('number')).result, '0');
        await client.breakAt(COUNTING);
        await client.go();
        assert.equal((await client.outputs()).split('\n').length, 11);
    }));

test('a breakpoint moves to the next line with code', () => withClient(async (client) => {
    await client.launch({ program: COUNTING, stopOnEntry: true });
    await client.next('stopped');
    const [onComment, twoLater, afterEnd, zero] = await client.breakAt(
        COUNTING, line(COUNTING, '# Twice'), IN_DOUBLE + 1, CALL + 1, 0);
    assert.deepEqual([onComment.verified, onComment.line], [true, IN_DOUBLE]);
    assert.deepEqual([twoLater.verified, twoLater.line], [true, IN_DOUBLE + 3]);
    assert.equal(afterEnd.verified, false);
    assert.match(afterEnd.message, /no code/);
    assert.equal(zero.verified, false);
    assert.ok(zero.message);
    await client.go();
    assert.equal(await client.stop(), `breakpoint <module>:${IN_DOUBLE + 3}`);
    await client.go();
    assert.equal(await client.stop(), `breakpoint double:${IN_DOUBLE}`);
}));

test('breakpoints are those last asked for in their file', () => withClient(async (client) => {
    await client.launch({ program: COUNTING, stopOnEntry: true });
    await client.next('stopped');
    const [call, inside] = await client.breakAt(COUNTING, CALL, IN_DOUBLE);
    assert.notEqual(call.id, inside.id);
    const [same] = await client.breakAt(COUNTING, IN_DOUBLE);
    assert.equal(same.id, inside.id);
    await client.go();
    assert.equal(await client.stop(), `breakpoint double:${IN_DOUBLE}`);
    assert.deepEqual(await client.breakAt(COUNTING), []);
    await client.go();
    await client.next('terminated');
    assert.ok(!client.has('stopped'));
}));

test('a condition decides', () => withClient(async (client) => {
    await client.launch({ program: COUNTING }, () => client.breakAt(COUNTING,
        { line: CALL, condition: 'number % 4 == 1' }));
    assert.deepEqual(await valuesAtStops(client, 'number'), ['1', '5', '9']);
}));

test('a condition that raises stops the program', () => withClient(async (client) => {
    await client.launch({ program: COUNTING }, () => client.breakAt(COUNTING,
        { line: CALL, condition: '1 / (number - 2)' }));
    // 1 / -1 and the like are true, 1 / 4 and the like are not.
    assert.deepEqual(await valuesAtStops(client, 'number'), ['0', '1', '2', '3']);
}));

test('a condition that is no expression is refused', () => withClient(async (client) => {
    await client.launch({ program: COUNTING, stopOnEntry: true });
    await client.next('stopped');
    const [broken, whole] = await client.breakAt(COUNTING,
        { line: CALL, condition: 'number =' }, { line: IN_DOUBLE, condition: ' number == 3 ' });
    assert.equal(broken.verified, false);
    assert.match(broken.message, /condition/);
    assert.equal(whole.verified, true);
    await client.go();
    assert.deepEqual(await valuesAtStops(client, 'number'), ['3']);
}));

for (const [hitCondition, expected] of Object.entries({
    '3': [2], '== 3': [2], '=3': [2], '> 8': [8, 9], '>= 8': [7, 8, 9],
    '< 3': [0, 1], '<= 3': [0, 1, 2], '% 4': [3, 7], ' %4 ': [3, 7],
})) {
    test(`of ten hits, "${hitCondition}" stops at ${expected.length}`, () =>
        withClient(async (client) => {
            await client.launch({ program: COUNTING }, () => client.breakAt(COUNTING,
                { line: CALL, hitCondition }));
            assert.deepEqual(await valuesAtStops(client, 'number'), expected.map(String));
        }));
}

test('hits count where the condition holds', () => withClient(async (client) => {
    await client.launch({ program: COUNTING }, () => client.breakAt(COUNTING,
        { line: CALL, condition: 'number % 2', hitCondition: '% 2' }));
    assert.deepEqual(await valuesAtStops(client, 'number'), ['3', '7']);
}));

test('a hit condition that is none is refused', () => withClient(async (client) => {
    await client.launch({ program: COUNTING, stopOnEntry: true });
    await client.next('stopped');
    const [breakpoint] = await client.breakAt(COUNTING, { line: CALL, hitCondition: 'often' });
    assert.equal(breakpoint.verified, false);
    assert.match(breakpoint.message, /hit condition/i);
}));

test('a log message is written instead of stopping', () => withClient(async (client) => {
    await client.launch({ program: COUNTING }, () => client.breakAt(COUNTING, {
        line: CALL, condition: 'number < 3', hitCondition: '>= 2',
        logMessage: 'at {number}: {[number] * 2}, {"a" + "b"}, {1/0}, {u"\\xe4"}, {no}' }));
    await client.outputs();
    assert.ok(!client.has('stopped'));
    const logged = client.kept.filter((message) => message.event === 'output'
        && message.body.category === 'console').map((message) => message.body);
    assert.deepEqual(logged.map((body) => body.output), [1, 2].map((number) =>
        `at ${number}: [${number}, ${number}], ab, <ZeroDivisionError: `
        + 'integer division or modulo by zero>, ä, '
        + "<NameError: name 'no' is not defined>\n"));
    assert.equal(logged[0].source.path, COUNTING);
    assert.equal(logged[0].line, CALL);
}));

test('several breakpoints on a line count for themselves', () => withClient(async (client) => {
    await client.launch({ program: COUNTING, stopOnEntry: true });
    await client.next('stopped');
    const [third, fifth] = await client.breakAt(COUNTING,
        { line: CALL, condition: 'number == 3' }, { line: CALL, condition: 'number in (3, 5)' });
    await client.go();
    assert.deepEqual((await client.next('stopped')).hitBreakpointIds, [third.id, fifth.id]);
    await client.go();
    assert.deepEqual((await client.next('stopped')).hitBreakpointIds, [fifth.id]);
    await client.go();
    await client.next('terminated');
}));

test('lines and columns may be counted from 0', () => withClient(async (client) => {
    await client.initialize({ linesStartAt1: false, columnsStartAt1: false });
    await client.send('launch', { program: COUNTING });
    await client.next('initialized');
    const [breakpoint] = await client.breakAt(COUNTING, CALL - 1);
    assert.equal(breakpoint.line, CALL - 1);
    await client.send('configurationDone');
    await client.next('stopped');
    const [frame] = await client.stack();
    assert.deepEqual([frame.line, frame.column], [CALL - 1, 0]);
}));

test('files may be named by URIs', () => withClient(async (client) => {
    const file = program('x = 1\nprint x\n', 'ä b.py');
    const uri = require('node:url').pathToFileURL(file).href;
    await client.initialize({ pathFormat: 'uri' });
    await client.send('launch', { program: file });
    await client.next('initialized');
    await client.breakAt(uri, 2);
    await client.send('configurationDone');
    await client.next('stopped');
    assert.equal((await client.stack())[0].source.path, uri);
}));

test('a file is the same by whichever path it is named', () => withClient(async (client) => {
    const folder = path.join(scratch(), 'linked');
    fs.symlinkSync(path.dirname(COUNTING), folder);
    await client.launch({ program: COUNTING },
        () => client.breakAt(path.join(folder, path.basename(COUNTING)), CALL));
    assert.equal(await client.stop(), `breakpoint <module>:${CALL}`);
}));

function loading() {
    const folder = scratch();
    const late = program(`
# A comment.
def greet(name):
    return 'hello ' + name  # in greet

class Greeter(object):
    def greet(self, name):
        return greet(name)  # in method
`, 'late.py', folder);
    const file = program(`
print 'before'  # before
import late  # import
print late.greet('you')  # call
print late.Greeter().greet('me')
`, 'program.py', folder);
    return { late, file };
}

test('breakpoints in modules that are loaded later are told of then', () =>
    withClient(async (client) => {
        const { late, file } = loading();
        await client.launchTo(file, '# before');
        const [waits, moves] = await client.breakAt(late, line(late, '# in greet'), 1);
        assert.deepEqual([waits.verified, waits.line], [false, line(late, '# in greet')]);
        assert.ok(waits.message);
        await client.go();
        const changed = {};
        for (const _ of [waits, moves]) {
            const { reason, breakpoint } = await client.next(
                'breakpoint', (body) => body.breakpoint.id !== 1);
            assert.equal(reason, 'changed');
            changed[breakpoint.id] = breakpoint;
        }
        assert.equal(changed[waits.id].verified, true);
        assert.equal(changed[waits.id].line, line(late, '# in greet'));
        assert.equal(changed[waits.id].source.path, late);
        assert.equal(changed[moves.id].verified, true);
        assert.equal(await client.stop(), `breakpoint <module>:${changed[moves.id].line}`);
        await client.go();
        assert.equal(await client.stop(), `breakpoint greet:${line(late, '# in greet')}`);
    }));

test('a breakpoint in a file that is not there waits for it', () => withClient(async (client) => {
    const folder = scratch();
    const made = path.join(folder, 'made.py');
    const file = program(`
import sys
print 'ready'  # ready
open(sys.argv[1], 'w').write('def f():\\n    # -\\n    return 3\\n')
import made
print made.f()
`, 'program.py', folder);
    await client.launchTo(file, '# ready', { args: [made] });
    const [breakpoint] = await client.breakAt(made, 2);
    assert.equal(breakpoint.verified, false);
    assert.match(breakpoint.message, /made\.py/);
    await client.go();
    assert.equal(await client.stop(), 'breakpoint f:3');
    const changed = await client.next(
        'breakpoint', (body) => body.breakpoint.id === breakpoint.id);
    assert.deepEqual([changed.breakpoint.verified, changed.breakpoint.line], [true, 3]);
}));

test('breakpoints can be at functions', () => withClient(async (client) => {
    await client.launch({ program: COUNTING, stopOnEntry: true });
    await client.next('stopped');
    const [breakpoint] = (await client.send('setFunctionBreakpoints', {
        breakpoints: [{ name: 'double', condition: 'number > 3', hitCondition: '% 3' }],
    })).body.breakpoints;
    await client.go();
    const stopped = await client.next('stopped');
    assert.equal(stopped.reason, 'function breakpoint');
    assert.deepEqual(stopped.hitBreakpointIds, [breakpoint.id]);
    assert.equal(await client.place(), `double:${IN_DOUBLE}`);
    assert.equal((await client.evaluate('number')).result, '6');
    await client.send('setFunctionBreakpoints', { breakpoints: [] });
    await client.go();
    await client.next('terminated');
    assert.ok(!client.has('stopped'));
}));

test('breakpoints at functions of modules that are loaded later are told of then', () =>
    withClient(async (client) => {
        const { late, file } = loading();
        await client.launchTo(file, '# before');
        const [inModule, inClass, nowhere] = (await client.send('setFunctionBreakpoints', {
            breakpoints: [{ name: 'late.greet' }, { name: 'late.Greeter.greet' },
                { name: 'late.none' }] })).body.breakpoints;
        for (const breakpoint of [inModule, inClass, nowhere]) {
            assert.equal(breakpoint.verified, false);
            assert.ok(breakpoint.message);
        }
        // It must not be set twice.
        await client.breakAt(file, line(file, '# call'));
        await client.go();
        assert.equal(await client.stop(), `breakpoint <module>:${line(file, '# call')}`);
        for (const [breakpoint, mark] of [[inModule, '# in greet'], [inClass, '# in method']]) {
            const changed = await client.next(
                'breakpoint', (body) => body.breakpoint.id === breakpoint.id);
            assert.equal(changed.breakpoint.verified, true);
            assert.equal(changed.breakpoint.source.path, late);
            assert.equal(changed.breakpoint.line, line(late, mark));
        }
        assert.ok(!client.kept.some((message) => message.event === 'breakpoint'
            && message.body.breakpoint.id === nowhere.id && message.body.breakpoint.verified));
        await client.go();
        assert.equal(await client.stop(), `function breakpoint greet:${line(late, '# in greet')}`);
        await client.go();
        assert.equal(await client.stop(), `function breakpoint greet:${line(late, '# in method')}`);
    }));

test('a breakpoint stops in threads and callbacks', () => withClient(async (client) => {
    const file = program(`
import threading
def key(number):
    return -number  # key
def work():
    print sorted([3, 5], key=key)
other = threading.Thread(target=work, name='other')
other.start()
other.join()
`);
    await client.launchTo(file, '# key');
    const { threads } = (await client.send('threads')).body;
    assert.deepEqual(threads.map((thread) => thread.name).sort(), ['MainThread', 'other']);
    const { id } = threads.find((thread) => thread.name === 'other');
    assert.equal(await client.place(id), `key:${line(file, '# key')}`);
    await client.go(id);
    assert.equal((await client.next('stopped')).threadId, id);
}));
