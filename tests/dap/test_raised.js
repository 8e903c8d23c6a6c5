'use strict';
// What is told of an exception that is on its way, and what is evaluated meanwhile.

const test = require('node:test');
const assert = require('node:assert');
const { withClient, program, line } = require('./lib/client');

const PROGRAM = program(`
import sys
def find(where, name):
    return where[name]  # raise
def search(old):
    try:
        open('/nosuch')
    except IOError:
        find({}, 'x')  # call
search('value')
`);

// Stops where the program raises what it does not catch.
function stopped(use, file = PROGRAM, more = {}) {
    return withClient(async (client) => {
        await client.launch({ program: file, ...more },
            () => client.send('setExceptionBreakpoints', { filters: ['uncaught'] }));
        await use(client, await client.next('stopped'));
    });
}

function info(client) {
    return client.send('exceptionInfo', { threadId: 1 }).then((response) => response.body);
}

test('an exception has the text that the interpreter gives it', () =>
    stopped(async (client, { description, text }) => {
        assert.equal(text, "KeyError: 'x'");
        assert.equal(description, 'Paused on exception');
        const told = await info(client);
        assert.equal(told.description, "KeyError: 'x'");
        assert.equal(told.details.message, "KeyError: 'x'");
        assert.match(told.details.stackTrace, new RegExp(
            `line ${line(PROGRAM, '# raise')}, in find\n    return where\\[name\\]  # raise\n$`));
    }));

test('a syntax error has its line and caret', () => {
    const file = program("compile('a = 1\\nx = = 1\\n', 'typed', 'exec')\n");
    return stopped(async (client, { text }) => {
        const shown = '  File "typed", line 2\n    x = = 1\n        ^\n'
            + 'SyntaxError: invalid syntax';
        assert.equal(text, shown);
        assert.equal((await info(client)).description, shown);
    }, file);
});

test('the text of an exception may take as long as any value, and fail', async () => {
    for (const [body, text] of [['while True: pass', 'Bad'], ['return 1 / 0', /^Bad/]]) {
        const file = program(`
class Bad(Exception):
    def __str__(self):
        ${body}
    __unicode__ = __repr__ = __str__
raise Bad('x')
`);
        await stopped(async (client, told) => {
            assert.match(told.text, new RegExp(text));
            assert.equal((await client.evaluate('1 + 1')).result, '2');
        }, file, { evaluationTimeout: 0.5 });
    }
});

for (const mark of ['# raise', '# call', '# last']) {
    test(`a step from ${mark} stops at what nothing catches`, () => withClient(async (client) => {
        const file = program(`
import sys
def fail():
    {}['x']  # raise
if sys.argv[1:]:
    fail()  # call
{}['x']  # last
`);
        await client.launch({ program: file, args: mark === '# last' ? [] : ['fail'] },
            async () => {
                await client.breakAt(file, line(file, mark));
                await client.send('setExceptionBreakpoints', { filters: ['uncaught'] });
            });
        await client.next('stopped');
        await client.send('next', { threadId: 1 });
        const { reason, text } = await client.next('stopped');
        assert.deepEqual([reason, text], ['exception', "KeyError: 'x'"]);
        assert.equal(await client.place(), mark === '# last'
            ? `<module>:${line(file, mark)}` : `fail:${line(file, '# raise')}`);
        // Once only.
        await client.go();
        await client.next('terminated');
        assert.ok(!client.has('stopped'));
    }));
}

test('what was being handled is the inner exception', () => stopped(async (client) => {
    const { details } = await info(client);
    assert.equal(details.evaluateName, '__exception__[1]');
    assert.equal((await client.evaluate(details.evaluateName)).result, "KeyError('x',)");
    const [inner] = details.innerException;
    assert.equal(inner.message, "IOError: [Errno 2] No such file or directory: '/nosuch'");
    assert.equal(inner.fullTypeName, 'exceptions.IOError');
    assert.match(inner.stackTrace, /in search\n {4}open\('\/nosuch'\)\n$/);
    assert.equal(inner.innerException, undefined);
}));

test('sys.exc_info() is the exception, in every context and frame', () =>
    stopped(async (client) => {
        const frames = await client.stack();
        for (const frame of frames) {
            for (const context of ['watch', 'hover', 'repl']) {
                const { result } = await client.evaluate(
                    'str(sys.exc_info()[1])', context, { frameId: frame.id });
                assert.equal(result, '"\'x\'"');
            }
        }
        assert.equal((await client.evaluate('sys.exc_info() == __exception__')).result, 'True');
        await assert.rejects(client.evaluate('1 / 0'), /ZeroDivisionError/);
        await client.evaluate('import traceback', 'repl');
        const { result } = await client.evaluate('traceback.format_exc()', 'repl');
        assert.equal(result.match(/File/g).length, 1);
        await client.go();
        await client.next('terminated');
        assert.match(client.written('stderr'), /KeyError: 'x'\n/);
    }));

test('the exception stands among the variables of its frame', () => stopped(async (client) => {
    const shown = await client.variable('__exception__');
    assert.match(shown.value, /^\(<type 'exceptions.KeyError'>, KeyError\('x',\), <traceback /);
    assert.equal(shown.evaluateName, '__exception__');
    assert.deepEqual(shown.presentationHint, { kind: 'data', attributes: ['readOnly'] });
    const [, value] = await client.variables(shown.variablesReference);
    assert.equal(value.evaluateName, '__exception__[1]');
    const locals = await client.scope('Locals');
    await assert.rejects(client.send('setVariable',
        { variablesReference: locals, name: '__exception__', value: '1' }), /cannot be changed/);
    const [, caller] = await client.stack();
    const names = (await client.variables(await client.scope('Locals', caller.id)))
        .map((one) => one.name);
    assert.deepEqual(names, ['old']);
    const { targets } = (await client.send('completions',
        { text: '__exc', column: 6, frameId: caller.id })).body;
    assert.deepEqual(targets.map((one) => one.label), ['__exception__']);
    // The program has nothing of it.
    assert.equal((await client.evaluate('sorted(locals())')).result, "['name', 'where']");
}));

test('the value that is returned stands among the variables', () => withClient(async (client) => {
    const file = program(`
def double(number):
    return number * 2  # return
print double(4)
`);
    await client.launchTo(file, '# return');
    await client.step('stepOut');
    const shown = await client.variable('__return__');
    assert.deepEqual([shown.value, shown.evaluateName], ['8', '__return__']);
    assert.equal((await client.evaluate('__return__ + 1')).result, '9');
}));

test('what the console has shown last has a name there', () => stopped(async (client) => {
    await assert.rejects(client.evaluate('_', 'repl'), /NameError/);
    assert.equal((await client.evaluate('[1, 2]', 'repl')).result, '[1, 2]');
    assert.equal((await client.evaluate('sum(_)', 'repl')).result, '3');
    assert.equal((await client.evaluate('[9]', 'watch')).result, '[9]');
    assert.equal((await client.evaluate('_', 'repl')).result, '3');
    assert.ok(!(await client.variable('_')));
}));

test('names of the program come first', () => {
    const file = program(`
import gettext
gettext.install('none')
def fail(__exception__):
    {}['x']
fail('its')
`);
    return stopped(async (client) => {
        assert.equal((await client.evaluate('1 + 1', 'repl')).result, '2');
        assert.equal((await client.evaluate('_("text")', 'repl')).result, "'text'");
        assert.match((await client.evaluate('_', 'repl')).result, /gettext/);
        const shown = await client.variables(await client.scope());
        assert.deepEqual(shown.map((one) => [one.name, one.value]), [['__exception__', "'its'"]]);
    }, file);
});
