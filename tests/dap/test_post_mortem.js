'use strict';
// The end of a program: its exit functions, and what an exception has left.

const test = require('node:test');
const assert = require('node:assert');
const { withClient, program, line } = require('./lib/client');
const { Listening, until } = require('./lib/listening');

const DYING = program(`
import atexit, os, sys
def withdraw(amount):
    kept = [amount]
    return {}[amount]  # raise
def main():
    where = 'main'
    withdraw(5)  # call
def bye():
    print 'bye'  # bye
atexit.register(bye)
if 'closing' in sys.argv:
    os.closerange(3, 100)
main()  # main
`);
const AT_EXIT = program(`
import atexit, sys
def first():
    print 'first'
def failing(name):
    {}[name]  # raise
atexit.register(first)
atexit.register(failing, 'k')
sys.exit(3)
`);

async function looksBack(client) {
    const { reason, threadId, description, text } = await client.next('stopped');
    assert.deepEqual([reason, threadId, text], ['exception', 1, 'KeyError: 5']);
    assert.match(description, /^Post-mortem: /);
    const stack = await client.stack();
    assert.deepEqual(stack.map((frame) => [frame.name, frame.line]), [
        ['withdraw', line(DYING, '# raise')], ['main', line(DYING, '# call')],
        ['<module>', line(DYING, '# main')]]);
    assert.equal((await client.variable('kept')).value, '[5]');
    assert.match((await client.variable('__exception__')).value, /KeyError\(5,\)/);
    assert.equal((await client.evaluate('where', 'watch', { frameId: stack[1].id })).result,
        "'main'");
    assert.equal((await client.evaluate('sys.exc_info()[1]', 'repl')).result, 'KeyError(5,)');
    const { breakMode, details } = (await client.send('exceptionInfo', { threadId })).body;
    assert.equal(breakMode, 'unhandled');
    assert.equal(details.innerException, undefined);
    assert.match(details.stackTrace, /in main\n.*\n.*in withdraw\n {4}return \{\}\[amount\]/);
    const { threads } = (await client.send('threads')).body;
    assert.deepEqual(threads.map((thread) => thread.name), ['MainThread']);
}

async function ends(client, status = 1) {
    assert.equal((await client.next('exited')).exitCode, status);
    await client.next('terminated');
    assert.ok(!client.has('stopped'));
}

for (const command of ['continue', 'next', 'stepIn', 'stepOut']) {
    test(`what has ended a launched program can be looked at; ${command} ends it`, () =>
        withClient(async (client) => {
            await client.launch({ program: DYING, postMortem: true });
            await looksBack(client);
            await until(() => client.written('stderr').includes('KeyError: 5\n'),
                () => 'no message');
            assert.equal(client.written(), '');
            await client.send(command, { threadId: 1 });
            assert.equal((await client.next('exited')).exitCode, 1);
            await client.next('terminated');
            assert.equal(client.written(), 'bye\n');
        }));
}

test('breakpoints in exit functions stop as ever', () => withClient(async (client) => {
    await client.launch({ program: DYING, postMortem: true },
        () => client.breakAt(DYING, line(DYING, '# bye')));
    await looksBack(client);
    assert.equal((await client.evaluate('bye()', 'repl')).result, '');
    await client.go();
    assert.equal(await client.stop(), `breakpoint bye:${line(DYING, '# bye')}`);
    await client.go();
    await ends(client);
}));

test('what was a stop is no other one, and without the attribute there is none', async () => {
    await withClient(async (client) => {
        await client.launch({ program: DYING, postMortem: true },
            () => client.send('setExceptionBreakpoints', { filters: ['uncaught'] }));
        assert.equal((await client.next('stopped')).description, 'Paused on exception');
        await client.go();
        await ends(client);
    });
    await withClient(async (client) => {
        await client.launch({ program: DYING });
        await ends(client);
    });
    await withClient(async (client) => {
        await client.launch({ program: DYING, postMortem: true, noDebug: true });
        await ends(client);
    });
});

test('an exception that steps have met is a stop at the end', () => withClient(async (client) => {
    await client.launchTo(DYING, '# raise', { postMortem: true });
    await client.send('next', { threadId: 1 });
    for (;;) {
        const { reason } = await client.next('stopped');
        if (reason === 'exception') {
            break;
        }
        await client.send('next', { threadId: 1 });
    }
    assert.match((await client.variable('kept')).value, /5/);
    await client.go();
    await ends(client);
}));

test('a client that is attached looks at the end', async () => {
    const file = program(`
import time
go = False
while not go:
    time.sleep(0.001)  # turn
def die(word):
    raise ValueError(word)
die('now')
`);
    const service = new Listening(file);
    await withClient(async (client) => {
        await client.begin('attach', { port: await service.port(), postMortem: true },
            () => client.breakAt(file, line(file, '# turn')));
        await client.next('stopped');
        await client.evaluate('globals().update(go=True)', 'repl');
        await client.breakAt(file);
        await client.go();
        assert.equal((await client.next('stopped')).text, 'ValueError: now');
        assert.equal((await client.evaluate('word')).result, "'now'");
        await client.go();
        await ends(client);
    });
    assert.equal(await service.ended, 1);
});

test('a program that nobody has debugged waits at its end', async () => {
    const service = new Listening(DYING, ['--post-mortem']);
    const port = await service.port();
    await service.said(/sorrel: (.*waiting for a client.*)\n/);
    assert.match(service.err, /KeyError: 5\n/);
    assert.equal(service.out, '');
    await withClient(async (client) => {
        await client.begin('attach', { port }, () => client.breakAt(DYING, line(DYING, '# bye')));
        await looksBack(client);
        await client.go();
        assert.equal(await client.stop(), `breakpoint bye:${line(DYING, '# bye')}`);
        await client.go();
        await ends(client);
    });
    assert.equal(await service.ended, 1);
    assert.equal(service.out, 'bye\n');
});

test('a client that leaves lets the process end', async () => {
    const service = new Listening(DYING, ['--post-mortem']);
    const port = await service.port();
    await service.said(/(waiting for a client)/);
    await withClient(async (client) => {
        await client.begin('attach', { port });
        await looksBack(client);
        await client.send('disconnect', {});
    });
    assert.equal(await service.ended, 1);
    assert.equal(service.out, 'bye\n');
});

test('nobody is waited for who cannot come, nor for longer than the user likes', async () => {
    const deaf = new Listening(DYING, ['--post-mortem'], ['closing']);
    assert.equal(await deaf.ended, 1);
    const service = new Listening(DYING, ['--post-mortem']);
    await service.said(/(waiting for a client)/);
    service.process.kill('SIGINT');
    assert.equal(await service.ended, 1);
    assert.equal(service.out, 'bye\n');
});

test('a program without fault ends at once', async () => {
    const file = program('import sys\nsys.exit(3)\n');
    assert.equal(await new Listening(file, ['--post-mortem']).ended, 3);
});

for (const filter of ['uncaught', 'printed']) {
    test(`an exception in an exit function stops: ${filter}`, () => withClient(async (client) => {
        await client.launch({ program: AT_EXIT },
            () => client.send('setExceptionBreakpoints', { filters: [filter] }));
        assert.equal((await client.next('stopped')).text, "KeyError: 'k'");
        assert.equal(await client.place(), `failing:${line(AT_EXIT, '# raise')}`);
        assert.equal((await client.variable('name')).value, "'k'");
        assert.ok(!client.has('exited'));
        await client.go();
        await ends(client, 3);
        assert.equal(client.written(), 'first\n');
    }));
}

test('an exception in an exit function of a program that listens stops', async () => {
    const service = new Listening(AT_EXIT, ['--wait']);
    const port = await service.port();
    await withClient(async (client) => {
        await client.begin('attach', { port },
            () => client.send('setExceptionBreakpoints', { filters: ['uncaught'] }));
        assert.equal((await client.next('stopped')).text, "KeyError: 'k'");
        assert.ok(!client.has('exited'));
        await client.go();
        await ends(client, 3);
    });
    assert.equal(await service.ended, 3);
});
