'use strict';
// How a client starts programs, and what it hears of their output and their end.

const test = require('node:test');
const assert = require('node:assert');
const { spawn } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');
const { withClient, program, line, scratch } = require('./lib/client');

const HOST = process.env.MORVIK_PYTHON;

// Runs a program to its end; returns its standard output.
function ran(file, more = {}) {
    let out;
    return withClient(async (client) => {
        await client.launch({ program: file, ...more });
        out = await client.outputs();
    }).then(() => out);
}

test('a launched program runs to its end with its output and exit code', () =>
    withClient(async (client) => {
        const file = program('import sys\nprint "hello"\nprint >>sys.stderr, "oh"\nsys.exit(3)\n');
        await client.launch({ program: file });
        assert.equal((await client.next('exited')).exitCode, 3);
        assert.equal(await client.outputs('stdout'), 'hello\n');
        assert.match(client.written('stderr'), /^oh\n/);
        const begun = await client.next('process');
        assert.equal(begun.startMethod, 'launch');
        assert.equal(begun.name, file);
        assert.equal(begun.isLocalProcess, true);
        assert.ok(begun.systemProcessId > 1);
    }));

test('a program that has ended has no threads', () => withClient(async (client) => {
    await client.launch({ program: program('pass\n'), noDebug: true });
    await client.next('terminated');
    assert.deepEqual((await client.send('threads')).body, { threads: [] });
}));

test('arguments, folder and environment are those asked for', async () => {
    const file = program(`
import os, sys
print sys.argv
print os.getcwd()
print os.environ['WORD'], os.environ.get('GONE'), os.environ.get('PYTHONPATH')
print sys.path[0], __name__, __file__
`);
    const cwd = scratch();
    const args = ['a b', "it's", '', '-x', '--', '$HOME', 'é'];
    process.env.GONE = 'here';
    const out = await ran(file, { args, cwd, env: { WORD: 'ä b', GONE: null } });
    assert.equal(out, `['${file}', 'a b', "it's", '', '-x', '--', '$HOME', '\\xc3\\xa9']\n${cwd}\n`
        + `ä b None None\n${path.dirname(file)} __main__ ${file}\n`);
});

test('the program finds what PYTHONPATH names', async () => {
    const folder = scratch();
    program('WORD = "found"\n', 'far_away.py', folder);
    assert.equal(await ran(program('import far_away\nprint far_away.WORD\n'),
        { env: { PYTHONPATH: folder } }), 'found\n');
});

test('a program is named relative to its folder', async () => {
    const cwd = scratch();
    program('print __file__\n', 'here.py', cwd);
    assert.equal(await ran('here.py', { cwd }), 'here.py\n');
});

test('a module is run by its name, from the folder the program is started in', () =>
    withClient(async (client) => {
        const cwd = scratch();
        fs.mkdirSync(path.join(cwd, 'pack'));
        program('', '__init__.py', path.join(cwd, 'pack'));
        program('WORD = "beside"\n', 'beside.py', path.join(cwd, 'pack'));
        const file = program(`
import sys
from pack import beside
from . import beside as same
print __name__, __package__, beside is same, sys.argv  # print
`, 'tool.py', path.join(cwd, 'pack'));
        await client.launch({ module: 'pack.tool', args: ['x'], cwd },
            () => client.breakAt(file, line(file, '# print')));
        assert.equal(await client.stop(), `breakpoint <module>:${line(file, '# print')}`);
        const begun = await client.next('process');
        assert.equal(begun.name, file);
        await client.go();
        assert.equal(await client.outputs(), `__main__ pack True ['${file}', 'x']\n`);
    }));

test('the interpreter is the one that is named', async () => {
    const out = await ran(program('import sys\nprint sys.executable\n'), { python: HOST });
    assert.equal(out, `${HOST}\n`);
});

for (const [what, args, complaint] of [
    ['neither a program nor a module', { args: [] }, /name either a program, a module or code/],
    ['both a program and a module', { program: 'x.py', module: 'x' },
        /name either a program, a module or code/],
    ['a folder that is not there', { program: 'x.py', cwd: '/none/such' }, /none\/such/],
    ['an interpreter that is not there', { module: 'x', python: '/none/such' },
        /no such interpreter: \/none\/such/],
    ['a program that is not there', { program: '/none/such.py' }, /can't open .*\/none\/such.py/],
    ['a module that is not there', { module: 'none_such' }, /could not be started/],
]) {
    test(`launching ${what} is refused`, () => withClient(async (client) => {
        await client.initialize();
        await assert.rejects(client.send('launch', args), complaint);
        if (complaint.source.includes('started')) {
            // What starts the program has said so, too.
            await client.next('terminated');
            assert.match(client.written('console'), /none.such/);
        }
    }));
}

test('requests out of their order are refused', () => withClient(async (client) => {
    const file = program('print 1\n');
    await assert.rejects(client.send('launch', { program: file }), /initialize comes first/);
    await client.launch({ program: file, stopOnEntry: true });
    await client.stop();
    await assert.rejects(client.send('launch', { program: file }), /one program at a time/);
    await assert.rejects(client.send('attach', { port: 1 }), /one program at a time/);
    await assert.rejects(client.send('configurationDone'), /comes once/);
}));

test('a program can be stopped before its first line', () => withClient(async (client) => {
    const file = program('"""A text."""\nfrom __future__ import division\nx = 1\nprint x\n');
    await client.launch({ program: file, stopOnEntry: true });
    const stopped = await client.next('stopped');
    assert.equal(stopped.reason, 'entry');
    assert.equal(await client.place(), '<module>:1');
    assert.equal(await client.step('next'), 'step <module>:2');
    await client.go();
    assert.equal(await client.outputs(), '1\n');
}));

test('a program that is not to be debugged does not stop', () => withClient(async (client) => {
    const file = program('x = 1\nprint x\n');
    await client.launch({ program: file, noDebug: true, stopOnEntry: true },
        () => client.breakAt(file, 2));
    assert.equal(await client.outputs(), '1\n');
    assert.ok(!client.has('stopped'));
}));

test('output comes whole, in its order and with its characters', () =>
    withClient(async (client) => {
        const file = program(`# -*- coding: utf-8 -*-
import os, sys
for number in range(20000):
    print number
sys.stdout.write('no end of line ')
os.write(1, 'ü'[:1])
os.write(1, 'ü'[1:] + '€\\n')
os.write(1, 'not \\xff text\\n')
sys.stderr.write('err')
os.system('echo from a child')
`);
        await client.launch({ program: file });
        const out = await client.outputs();
        assert.match(client.written('stderr'), /^err/);
        const numbers = Array.from({ length: 20000 }, (_, number) => `${number}\n`).join('');
        assert.equal(out, `${numbers}no end of line ü€\nnot � text\nfrom a child\n`);
    }));

test('output is told before the stop that follows it', () => withClient(async (client) => {
    const file = program(`
import os
for number in range(9):
    os.write(1, 'x' * 99)
    number  # stop
`);
    await client.launchTo(file, '# stop');
    for (let round = 1; round < 9; round++) {
        assert.equal(client.written().length, 99 * round);
        await client.go();
        await client.next('stopped');
    }
}));

test('a launched program has no input', async () => {
    const out = await ran(program('import sys\nprint repr(sys.stdin.read())\n'));
    assert.equal(out, "''\n");
});

for (const [what, text, status, written] of [
    ['an exception', 'raise ValueError("oh")\n', 1, /ValueError: oh\n/],
    ['a syntax error', 'x = 1\nx = = 2\n', 1, /line 2\n(.*\n)*SyntaxError: invalid syntax\n/],
    ['sys.exit() of a text', 'import sys\nsys.exit("farewell")\n', 1, /^farewell\n/],
    ['os._exit()', 'import os\nos._exit(7)\n', 7, /^/],
    ['a signal', 'import os\nos.kill(os.getpid(), 9)\n', 137, /^/],
    ['an exit function', 'import atexit, os\natexit.register(os._exit, 5)\n', 5, /^/],
]) {
    test(`a program that ends by ${what} is told to`, () => withClient(async (client) => {
        await client.launch({ program: program(text) },
            () => client.send('setExceptionBreakpoints', { filters: [] }));
        assert.equal((await client.next('exited')).exitCode, status);
        await client.next('terminated');
        assert.match(client.written('stderr'), written);
    }));
}

// Stands for the client's terminal: starts what it is asked to, and keeps its output.
function terminal(asked) {
    const environment = { ...process.env };
    for (const [name, value] of Object.entries(asked.env || {})) {
        if (value === null) {
            delete environment[name];
        } else {
            environment[name] = value;
        }
    }
    const [runtime, ...args] = asked.args;
    const started = spawn(runtime, args, { cwd: asked.cwd, env: environment });
    started.out = '';
    started.stdout.on('data', (data) => { started.out += data; });
    return started;
}

for (const [console, kind] of [
    ['integratedTerminal', 'integrated'], ['externalTerminal', 'external'],
]) {
    test(`a program runs in the client's ${kind} terminal`, () => withClient(async (client) => {
        const file = program(`
import os, sys
said = raw_input('say: ')
print said, os.getcwd(), os.environ['WORD'], sys.argv[1]  # said
sys.exit(4)
`);
        const cwd = scratch();
        let started;
        client.reverse.runInTerminal = (asked) => {
            assert.equal(asked.kind, kind);
            assert.ok(asked.title);
            started = terminal(asked);
            return { processId: started.pid };
        };
        await client.launch({ program: file, console, cwd, args: ['x y'], env: { WORD: 'w' } },
            () => client.breakAt(file, line(file, '# said')));
        started.stdin.write('good day\n');
        assert.equal(await client.stop(), `breakpoint <module>:${line(file, '# said')}`);
        assert.equal((await client.evaluate('said')).result, "'good day'");
        const ended = new Promise((resolve) => started.on('close', resolve));
        await client.go();
        assert.equal((await client.next('exited')).exitCode, 4);
        await client.next('terminated');
        assert.equal(await ended, 4);
        assert.equal(started.out, `say: good day ${cwd} w x y\n`);
        assert.equal(client.written(), '');
    }, { capabilities: { supportsRunInTerminalRequest: true } }));
}

test('a client without a terminal is not asked for one', () => withClient(async (client) => {
    await client.launch({ program: program('print 1\n'), console: 'integratedTerminal' });
    assert.equal(await client.outputs(), '1\n');
}));

test('a terminal that cannot be had refuses the launch', () => withClient(async (client) => {
    client.reverse.runInTerminal = () => {
        throw new Error('no terminal today');
    };
    await client.initialize();
    await assert.rejects(client.send('launch',
        { program: program('print 1\n'), console: 'integratedTerminal' }), /no terminal today/);
}, { capabilities: { supportsRunInTerminalRequest: true } }));
