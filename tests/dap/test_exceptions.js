'use strict';
// At which exceptions the program stops, and what is told of them.

const test = require('node:test');
const assert = require('node:assert');
const { withClient, program, line, scratch } = require('./lib/client');

const RAISING = program(`
import code

class Special(KeyError):
    pass

class Old:
    """Not derived from anything."""

def fail(error):
    raise error  # raise

def handled():
    for error in (ValueError('value'), Special('special'), Old()):
        try:
            fail(error)
        except:
            pass

def printed():
    console = code.InteractiveInterpreter({'fail': fail})
    console.runcode(compile("fail(TypeError('type'))", '<typed>', 'exec'))

hasattr(3, 'x'); list(iter([1]))
handled()  # handled
printed()  # printed
fail(IndexError(u'index \\xe4'))  # uncaught
`);
const RAISE = line(RAISING, '# raise');

function launch(client, settings) {
    return client.launch({ program: RAISING }, async () => {
        client.settings = (await client.send('setExceptionBreakpoints', settings)).body;
    });
}

function info(client) {
    return client.send('exceptionInfo', { threadId: 1 }).then((response) => response.body);
}

// The types of the exceptions that the program stops for until it ends.
async function stops(client) {
    const found = [];
    while (await client.nextStop()) {
        assert.equal(await client.place(), `fail:${RAISE}`);
        found.push((await info(client)).exceptionId);
        await client.go();
    }
    return found;
}

test('the filters are announced', () => withClient(async (client) => {
    const announced = await client.initialize();
    assert.deepEqual(announced.exceptionBreakpointFilters.map((one) => [one.filter, one.default]),
        [['raised', false], ['uncaught', true], ['userUnhandled', false], ['printed', false]]);
    assert.equal(announced.exceptionBreakpointFilters[2].label, 'User Uncaught Exceptions');
}));

for (const [filters, expected] of [
    [[], []],
    [['raised'], ['ValueError', 'Special', 'Old', 'TypeError', 'IndexError']],
    [['uncaught'], ['IndexError']],
    [['printed'], ['TypeError', 'IndexError']],
    [['printed', 'uncaught'], ['TypeError', 'IndexError']],
    // The interpreter's console, which is a library, takes the first.
    [['userUnhandled'], ['TypeError', 'IndexError']],
    [['userUnhandled', 'uncaught'], ['TypeError', 'IndexError']],
]) {
    test(`${filters.join(' and ') || 'no'} exceptions stop the program`, () =>
        withClient(async (client) => {
            await launch(client, { filters });
            assert.deepEqual(await stops(client), expected);
        }));
}

test('without any request no exception stops the program', () => withClient(async (client) => {
    await client.launch({ program: RAISING });
    assert.deepEqual(await stops(client), []);
}));

for (const [what, filterOptions, expected] of [
    ['named types', [{ filterId: 'raised', condition: 'KeyError, TypeError' }],
        ['Special', 'TypeError']],
    ['all but named types', [{ filterId: 'raised', condition: '-LookupError' }],
        ['ValueError', 'Old', 'TypeError']],
    ['named types besides uncaught ones', [{ filterId: 'uncaught' },
        { filterId: 'raised', condition: 'ValueError' }], ['ValueError', 'IndexError']],
    ['uncaught ones but named types', [{ filterId: 'uncaught', condition: '-IndexError' }], []],
]) {
    test(`the program stops at ${what}`, () => withClient(async (client) => {
        await launch(client, { filters: [], filterOptions });
        assert.ok(client.settings.breakpoints.every((one) => one.verified));
        assert.equal(client.settings.breakpoints.length, filterOptions.length);
        assert.deepEqual(await stops(client), expected);
    }));
}

test('types are found when their module is there', () => withClient(async (client) => {
    const folder = scratch();
    // Another import ends before the type is there.
    program('', 'early.py', folder);
    program('import early\nclass Late(Exception):\n    pass\n', 'late.py', folder);
    const file = program(`
import late
for error in (ValueError(), late.Late()):
    try:
        raise error
    except Exception:
        pass
`, 'program.py', folder);
    await client.launch({ program: file }, async () => {
        const { breakpoints } = (await client.send('setExceptionBreakpoints', { filters: [],
            filterOptions: [{ filterId: 'raised', condition: 'late.Late' }] })).body;
        assert.equal(breakpoints[0].verified, false);
        assert.match(breakpoints[0].message, /late\.Late/);
    });
    await client.next('stopped');
    assert.equal((await info(client)).details.fullTypeName, 'late.Late');
    await client.go();
    await client.next('terminated');
    assert.ok(!client.has('stopped'));
}));

test('a module may be given with the name of a type', () => withClient(async (client) => {
    await launch(client, { filters: [], filterOptions: [
        { filterId: 'raised', condition: 'exceptions.ValueError Old' }] });
    // The program has not made its own yet.
    assert.equal(client.settings.breakpoints[0].verified, false);
    assert.deepEqual(await stops(client), ['ValueError', 'Old']);
}));

test('exception options say for which types the program stops', () =>
    withClient(async (client) => {
        await launch(client, { filters: [], exceptionOptions: [
            { breakMode: 'unhandled' },
            { path: [{ names: ['Python'] }, { names: ['ValueError', 'KeyError'] }],
                breakMode: 'always' },
            { path: [{ names: ['Python'] }, { names: ['IndexError'] }], breakMode: 'never' }] });
        assert.deepEqual(client.settings.breakpoints.map((one) => one.verified),
            [true, true, true]);
        assert.deepEqual(await stops(client), ['ValueError', 'Special']);
    }));

test('the last request holds, also while the program is stopped', () =>
    withClient(async (client) => {
        await launch(client, { filters: ['raised'] });
        await client.next('stopped');
        await client.send('setExceptionBreakpoints', { filters: ['uncaught'] });
        await client.go();
        assert.deepEqual(await stops(client), ['IndexError']);
    }));

test('an exception is described', () => withClient(async (client) => {
    await launch(client, { filters: ['uncaught'] });
    const stopped = await client.next('stopped');
    assert.equal(stopped.reason, 'exception');
    assert.match(stopped.text, /^IndexError: /);
    const described = await info(client);
    assert.equal(described.exceptionId, 'IndexError');
    assert.match(described.description, /index/);
    assert.equal(described.breakMode, 'unhandled');
    assert.equal(described.details.typeName, 'IndexError');
    assert.equal(described.details.fullTypeName, 'exceptions.IndexError');
    assert.match(described.details.stackTrace, new RegExp(
        `line ${line(RAISING, '# uncaught')}, in <module>[^]*line ${RAISE}, in fail\n`));
    // Before the stack unwinds: its variables are still there.
    assert.equal((await client.evaluate('error.args')).result, "(u'index \u00e4',)");
    assert.equal((await client.stack()).length, 2);
    await client.go();
    assert.equal((await client.next('exited')).exitCode, 1);
    await client.next('terminated');
    assert.match(client.written('stderr'), /IndexError/);
}));

test('the modes by which exceptions stop are told', async () => {
    for (const [filter, mode] of [['raised', 'always'], ['printed', 'userUnhandled']]) {
        await withClient(async (client) => {
            await launch(client, { filters: [filter] });
            await client.next('stopped');
            assert.equal((await info(client)).breakMode, mode);
        });
    }
});

test('an exception whose text cannot be had is described all the same', () =>
    withClient(async (client) => {
        const file = program(`
class Bad(Exception):
    def __str__(self):
        raise ValueError('no text')
    __repr__ = __unicode__ = __str__
raise Bad('x')
`);
        await client.launch({ program: file },
            () => client.send('setExceptionBreakpoints', { filters: ['uncaught'] }));
        await client.next('stopped');
        assert.equal((await info(client)).exceptionId, 'Bad');
    }));

test('there is nothing to describe where no exception is', () => withClient(async (client) => {
    await client.launch({ program: RAISING, stopOnEntry: true });
    await client.next('stopped');
    await assert.rejects(info(client), /not stopped at an exception/);
}));

test('a step comes upon what an exception leads to', () => withClient(async (client) => {
    const file = program(`
def fail():
    raise ValueError  # raise
try:
    fail()  # call
except ValueError:  # handler
    print 'handled'
`);
    await client.launchTo(file, '# call');
    await client.step('stepIn');
    assert.equal(await client.place(), `fail:${line(file, '# raise')}`);
    // The call that is not to be finished, then what comes instead.
    assert.equal(await client.step('next'), `step <module>:${line(file, '# call')}`);
    assert.equal(await client.step('next'), `step <module>:${line(file, '# handler')}`);
}));

test('a stop says where C code may still swallow the exception', () =>
    withClient(async (client) => {
        const file = program(`
import re
def replace(match):
    return 1 / 0
substitute = re.compile('t').sub
def work(call):
    call(replace, 'text')
work(substitute)
`);
        await client.launch({ program: file },
            () => client.send('setExceptionBreakpoints', { filters: ['uncaught'] }));
        const { description } = await client.next('stopped');
        assert.equal(description,
            'Paused on exception (no handler in Python code; called by C code)');
    }));

test('an exception ends a thread', () => withClient(async (client) => {
    const file = program(`
import threading
def work():
    raise ValueError('of a thread')  # raise
other = threading.Thread(target=work, name='other')
other.start()
other.join()
print 'over'
`);
    await client.launch({ program: file },
        () => client.send('setExceptionBreakpoints', { filters: ['uncaught'] }));
    const { reason, threadId } = await client.next('stopped');
    assert.equal(reason, 'exception');
    assert.equal(await client.place(threadId), `work:${line(file, '# raise')}`);
    const { description } = (await client.send('exceptionInfo', { threadId })).body;
    assert.match(description, /of a thread/);
    await client.go(threadId);
    assert.equal(await client.outputs(), 'over\n');
}));

// The places of the stops for these filters until the program ends, and the types.
async function places(text, settings, configuration = {}) {
    const found = [];
    await withClient(async (client) => {
        const file = program(text);
        await client.launch({ program: file, ...configuration },
            () => client.send('setExceptionBreakpoints', settings));
        while (await client.nextStop()) {
            const { stackFrames } = (await client.send('stackTrace', { threadId: 1 })).body;
            const own = stackFrames.find((frame) => frame.source.path === file);
            found.push(`${(await info(client)).exceptionId} ${own.name}:${own.line}`);
            await client.go();
        }
    });
    return found;
}

const LIBRARIES = `
import re, sched, string, time

def raises(kind):
    raise kind('x')

def by_library(action, *arguments):
    scheduler = sched.scheduler(time.time, time.sleep)
    scheduler.enter(0, 1, action, arguments)
    scheduler.run()

def attempt(function, *arguments):
    try:
        function(*arguments)
    except Exception:
        pass

re.compile('(a|b)*[c-d]{1,2}(?P<name>x)?')
attempt(re.compile, '(')
string.Template('$x').safe_substitute()
attempt(string.Template('$x').substitute)
attempt(by_library, raises, ValueError)
attempt(raises, LookupError)
`;

test('with justMyCode, exceptions of libraries stop where they come to the own code', async () => {
    const own = ['error attempt:13', 'KeyError attempt:13', 'ValueError raises:4',
        'LookupError raises:4'];
    assert.deepEqual(await places(LIBRARIES, { filters: ['raised'] }), own);
    const all = await places(LIBRARIES, { filters: ['raised'] }, { justMyCode: false });
    assert.ok(all.length > own.length);
    for (const [condition, expected] of [
        ['KeyError', [own[1]]], ['re.error', [own[0]]], ['sre_constants.error', [own[0]]],
        ['LookupError', [own[1], own[3]]]]) {
        assert.deepEqual(await places(LIBRARIES, { filters: [],
            filterOptions: [{ filterId: 'raised', condition }] }), expected);
    }
});

test('what leaves the own code for a library stops', async () => {
    assert.deepEqual(await places(LIBRARIES, { filters: ['userUnhandled'] }),
        ['ValueError raises:4']);
    assert.deepEqual(await places(LIBRARIES, { filters: [],
        filterOptions: [{ filterId: 'userUnhandled', condition: '-ValueError' }] }), []);
    assert.deepEqual(await places(LIBRARIES,
        { filters: [], exceptionOptions: [{ breakMode: 'userUnhandled' }] }),
    ['ValueError raises:4']);
});

test('named types stop in any case', async () => {
    const text = `
class Missing(KeyError):
    pass
try:
    raise Missing('x')
except Missing:
    pass
class Probe(object):
    def __getattr__(self, name):
        raise AttributeError(name)
hasattr(Probe(), 'x')
raise SystemExit(0)
`;
    const expected = ['Missing <module>:4', 'AttributeError __getattr__:9',
        'SystemExit <module>:11'];
    const condition = 'KeyError, AttributeError, SystemExit';
    for (const filters of [[], ['uncaught'], ['printed', 'userUnhandled']]) {
        assert.deepEqual(await places(text, { filters,
            filterOptions: [{ filterId: 'raised', condition }] }), expected);
    }
    assert.deepEqual(await places(text, { filters: ['raised', 'uncaught'] }),
        expected.slice(0, 2));
});

test('what the program prints stops where it is raised, or else where it is printed', async () => {
    const text = `
import logging
def fail():
    raise ValueError('x')
def later():
    report()
def report():
    logging.exception('seen')
def attempt(then):
    try:
        fail()
    except ValueError:
        then()
attempt(report)
attempt(later)
attempt(str)
try:
    fail()
except:
    logging.exception('seen')
`;
    assert.deepEqual(await places(text, { filters: ['printed'] }),
        ['ValueError fail:3', 'ValueError fail:3', 'ValueError fail:3']);
});

const SWALLOWED = `
import cProfile
def timer():
    raise ValueError('swallowed')
for n in range(3):
    profiler = cProfile.Profile(timer)
    profiler.enable()
    n = 0
    profiler.disable()
`;

test('where exceptions turn out to be swallowed, no more stop when that is asked for', async () => {
    const filters = ['uncaught'];
    assert.deepEqual(await places(SWALLOWED, { filters }, { learnExceptions: true }),
        ['ValueError timer:3']);
    assert.ok((await places(SWALLOWED, { filters })).length > 2);
});

test('the console ignores the place of an exception', () => withClient(async (client) => {
    const file = program(`
def attempt():
    try:
        raise ValueError  # raise
    except ValueError:
        pass
attempt()
attempt()
print 'here'  # here
attempt()
`);
    await client.launch({ program: file }, async () => {
        await client.breakAt(file, line(file, '# here'));
        await client.send('setExceptionBreakpoints', { filters: ['raised'] });
    });
    await client.next('stopped');
    const { stackFrames } = (await client.send('stackTrace', { threadId: 1 })).body;
    const type = async (expression) => (await client.send('evaluate',
        { expression, frameId: stackFrames[0].id, context: 'repl' })).body.result;
    assert.equal(await type(' catch  ignore'),
        `Will not stop at exceptions raised at ${file}:${line(file, '# raise')}.`);
    await client.go();
    assert.equal((await client.next('stopped')).reason, 'breakpoint');
    await assert.rejects(client.send('evaluate',
        { expression: 'catch ignore', context: 'repl' }), /not stopped at an exception/);
    const clear = await client.send('evaluate', { expression: 'ignore clear', context: 'repl' });
    assert.match(clear.body.result, /anywhere/);
    await client.go();
    assert.equal((await client.next('stopped')).reason, 'exception');
}));
