'use strict';
// Expressions and statements, in every context that a client may have for them.

const test = require('node:test');
const assert = require('node:assert');
const { withClient, program } = require('./lib/client');

const PROGRAM = program(`
word = 'global'
class Thing(object):
    kind = 'thing'
    def method(self):
        return 5
def inner(number):
    items = [number, 'b']
    thing = Thing()
    pass  # stop
    print number, word, items
def outer():
    secret = 'of outer'
    inner(1)
    print secret
outer()
`);

function stopped(use, more) {
    return withClient(async (client) => {
        await client.launchTo(PROGRAM, '# stop', more);
        await use(client);
    });
}

for (const context of ['watch', 'hover', 'clipboard', 'variables']) {
    test(`an expression has its value in the context ${context}`, () => stopped(async (client) => {
        const shown = await client.evaluate('items + [number]', context);
        assert.equal(shown.result, "[1, 'b', 1]");
        if (context !== 'clipboard') {
            assert.equal(shown.type, 'list');
            assert.equal(shown.indexedVariables, 3);
            const [first] = await client.variables(shown.variablesReference);
            assert.deepEqual([first.name, first.value], ['[0]', '1']);
        }
        // Only the console takes statements.
        await assert.rejects(client.evaluate('number = 2', context), /SyntaxError/);
        assert.equal((await client.evaluate('number')).result, '1');
    }));
}

test('the console takes statements, whose changes stay', () => stopped(async (client) => {
    const type = (text, more) => client.evaluate(text, 'repl', more).then((body) => body.result);
    assert.equal(await type('number'), '1');
    assert.equal(await type('number = 7'), '');
    assert.equal(await type('items.append(number)'), '');
    assert.equal(await type('global word; word = "changed"'), '');
    assert.equal(await type('for x in range(3):\n    number += x\n'), '');
    assert.equal(await type('import os.path'), '');
    assert.equal(await type('os.path.basename("/a/b")'), "'b'");
    assert.equal(await type('def later():\n    return 12\n'), '');
    assert.equal(await type('later()'), '12');
    assert.equal(await type('one = 1\ntwo = 2\none + two'), '3');
    await type('print "written"');
    assert.equal(await type('number'), '10');
    await client.go();
    assert.equal(await client.outputs(), "written\n10 changed [1, 'b', 7]\nof outer\n");
}));

test('frames are told apart', () => stopped(async (client) => {
    const frames = await client.stack();
    const at = (number) => ({ frameId: frames[number].id });
    assert.equal((await client.evaluate('secret', 'watch', at(1))).result, "'of outer'");
    await assert.rejects(client.evaluate('secret', 'watch', at(0)), /NameError/);
    await client.evaluate('secret = "known"', 'repl', at(1));
    // Without a frame, the program's globals.
    const { result } = (await client.send('evaluate', { expression: 'word' })).body;
    assert.equal(result, "'global'");
    await client.go();
    assert.match(await client.outputs(), /known\n$/);
}));

test('what an expression raises is the answer', () => stopped(async (client) => {
    for (const context of ['watch', 'hover', 'repl']) {
        await assert.rejects(client.evaluate('1 / 0', context),
            context === 'repl'
                ? /^Error: Traceback .*\n  File "<stdin>", line 1, in <module>\nZeroDivisionError: .*$/
                : /^Error: ZeroDivisionError: integer division or modulo by zero$/);
        await assert.rejects(client.evaluate('1 +', context), /SyntaxError/);
        await assert.rejects(client.evaluate('{a}', context), /SyntaxError|NameError/);
        await assert.rejects(client.evaluate('__import__("sys").exit(3)', context), /SystemExit/);
    }
    // The program is where it was.
    assert.match(await client.place(), /^inner:/);
    await client.go();
    assert.equal((await client.next('exited')).exitCode, 0);
}));

test('an expression that runs through breakpoints and exceptions stops nowhere', () =>
    withClient(async (client) => {
        const file = program(`
def double(number):
    return number * 2  # double
def fail():
    raise ValueError('oh')
print 'x'  # stop
`);
        await client.launchTo(file, ['# stop', '# double']);
        await client.send('setExceptionBreakpoints', { filters: ['raised'] });
        assert.equal((await client.evaluate('double(4)')).result, '8');
        await assert.rejects(client.evaluate('fail()'), /ValueError: oh/);
        await client.go();
        await client.next('terminated');
        assert.ok(!client.has('stopped'));
    }));

test('texts are shortened but for the clipboard', () => stopped(async (client) => {
    const long = await client.evaluate('"x" * 100000', 'watch');
    assert.ok(long.result.length < 2000);
    assert.equal((await client.evaluate('"x" * 100000', 'clipboard')).result.length, 100002);
    assert.equal((await client.evaluate('u"\\xe4"', 'hover')).result, "u'\u00e4'");
}));

test('an expression that takes too long is ended', () => stopped(async (client) => {
    const began = Date.now();
    await assert.rejects(client.evaluate('[x for x in iter(int, 1)]', 'watch'), /took too long/);
    await assert.rejects(client.evaluate('map(lambda x: x, iter(int, 1))', 'hover'),
        /took too long/);
    assert.ok(Date.now() - began >= 1000);
    assert.equal((await client.evaluate('number')).result, '1');
    await client.go();
    assert.equal((await client.next('exited')).exitCode, 0);
}, { evaluationTimeout: 0.5 }));

test('what the console runs may take as long as it likes, and can be cancelled', () =>
    stopped(async (client) => {
        const text = 'import time; end = time.time() + 1\nwhile time.time() < end: pass\n';
        assert.equal((await client.evaluate(text, 'repl')).result, '');
        const frameId = (await client.stack(1, 1))[0].id;
        const requestId = client.sequence;
        const endless = client.send('evaluate',
            { expression: 'while True: pass', context: 'repl', frameId });
        const waiting = client.send('evaluate', { expression: 'number', frameId });
        await Promise.all([
            client.send('cancel', { requestId: requestId + 1 }),
            client.send('cancel', { requestId }),
            assert.rejects(waiting, /cancelled/),
            assert.rejects(endless, /too long|cancelled/)]);
        // What is over or never was cannot be cancelled; that is no mistake.
        await client.send('cancel', { requestId });
        await client.send('cancel', { requestId: 99999 });
        assert.equal((await client.evaluate('number')).result, '1');
    }, { evaluationTimeout: 0.2 }));

test('names that could follow are completed', () => stopped(async (client) => {
    const frameId = (await client.stack(1, 1))[0].id;
    const complete = async (text, more) => {
        const { targets } = (await client.send('completions', {
            text, column: text.length + 1, frameId, ...more })).body;
        return targets.map((target) => {
            const line = text.split('\n')[((more || {}).line || 1) - 1];
            return line.slice(0, target.start - 1) + target.label
                + line.slice(target.start - 1 + target.length);
        });
    };
    assert.deepEqual(await complete('num'), ['number']);
    assert.deepEqual(await complete('x = thing.me'), ['x = thing.method']);
    assert.ok((await complete('thing.')).includes('thing.kind'));
    assert.deepEqual(await complete('wor'), ['word']);
    assert.deepEqual(await complete('whi'), ['while']);
    assert.deepEqual(await complete('len(isinst'), ['len(isinstance']);
    assert.deepEqual(await complete('thing.met(1)', { column: 10 }), ['thing.method(1)']);
    assert.deepEqual(await complete('x = 1\nnum', { line: 2, column: 4 }), ['number']);
    assert.deepEqual(await complete('thing.none_such'), []);
    await assert.rejects(complete('none_such.x'), /NameError/);
    const globally = (await client.send('completions', { text: 'oute', column: 5 })).body.targets;
    assert.deepEqual(globally.map((target) => target.label), ['outer']);
}));
