'use strict';
// What the extension does in an editor, of which a stand-in is there.

const test = require('node:test');
const assert = require('node:assert');
const { execFileSync, spawn } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');
const { program, scratch, MORVIK } = require('./lib/client');
const { Editor, uri, EXTENSION } = require('./lib/editor');

const HOST = process.env.MORVIK_PYTHON;
const { findProcesses } = require(path.join(EXTENSION, 'processes.js'));

// Runs a test with other environment variables.
async function withEnvironment(changed, run) {
    const before = { ...process.env };
    Object.assign(process.env, changed);
    try {
        await run();
    } finally {
        for (const name of Object.keys(changed)) {
            delete process.env[name];
        }
        Object.assign(process.env, before);
    }
}

// A program by this name in a folder of its own, which is a shell script.
function script(text, name, folder = scratch()) {
    fs.mkdirSync(folder, { recursive: true });
    const file = path.join(folder, name);
    fs.writeFileSync(file, `#!/bin/sh\n${text}\n`, { mode: 0o755 });
    return file;
}

// A folder that looks like a checkout.
function checkout() {
    const folder = scratch();
    fs.mkdirSync(path.join(folder, 'sorrel'));
    fs.writeFileSync(path.join(folder, 'sorrel', 'main.py'), '');
    return path.dirname(script('', 'morvik', folder));
}

// The extension where the editor installs it: in no checkout.
function installed(remembered) {
    const folder = path.join(scratch(), 'morvik.sorrel');
    fs.cpSync(EXTENSION, folder, { recursive: true });
    if (remembered) {
        fs.writeFileSync(path.join(folder, 'morvik.json'), JSON.stringify({ morvik: remembered }));
    }
    return folder;
}

const NOTHING = { PATH: scratch(), MORVIK_PYTHON: '' };

test('a file without a launch.json is debugged in the folder that is open', async () => {
    const folder = scratch();
    const editor = new Editor({ folders: [folder] }).activate();
    editor.look(path.join(folder, 'below', 'a.py'));
    assert.deepEqual(await editor.resolved({}), { type: 'sorrel', request: 'launch',
        name: 'Python 2: current file', program: path.join(folder, 'below', 'a.py'),
        cwd: folder });
});

test('without an open folder it is debugged in its own, or only run', async () => {
    const editor = new Editor().activate();
    editor.look('/srv/a.py');
    const { cwd, noDebug, program: file } = await editor.resolved({ noDebug: true });
    assert.deepEqual([file, cwd, noDebug], ['/srv/a.py', '/srv', true]);
    assert.deepEqual(editor.shown, []);
});

test('what is no Python file is not debugged, and that is said', async () => {
    const editor = new Editor().activate();
    assert.equal(await editor.resolved({}), undefined);
    editor.look('/srv/a.html', 'html');
    assert.equal(await editor.resolved({}), undefined);
    editor.look('Untitled-1', 'python', 'untitled');
    assert.equal(await editor.resolved({}), undefined);
    assert.deepEqual(editor.shown, ['sorrel: Open the Python file that is to be debugged.',
        'sorrel: a.html is no Python file.', 'sorrel: Save the file that is to be debugged.']);
});

test('a configuration stays as it is, but for what the editor makes of numbers', async () => {
    const editor = new Editor().activate();
    const configuration = { type: 'sorrel', request: 'attach', name: 'x', port: 5679 };
    assert.deepEqual(await editor.resolved(configuration), configuration);
    assert.deepEqual(await editor.resolved({ ...configuration, port: '5679' }), configuration);
});

test('the interpreter that is set is for programs whose configuration has none', async () => {
    const folder = scratch();
    const editor = new Editor({ folders: [folder], settings: {
        'sorrel.python': '${workspaceFolder}/env/bin/python' } }).activate();
    const launch = { type: 'sorrel', request: 'launch', name: 'x', program: 'y' };
    assert.equal((await editor.resolved(launch)).python, path.join(folder, 'env/bin/python'));
    assert.equal((await editor.resolved({ ...launch, python: 'p' })).python, 'p');
    const attach = await editor.resolved({ type: 'sorrel', request: 'attach', port: 1 });
    assert.equal(attach.python, undefined);
    assert.deepEqual((await editor.adapter()).slice(1),
        ['dap', '--python', path.join(folder, 'env/bin/python')]);
    assert.deepEqual((await editor.adapter({ python: ['p', '-O'] })).slice(1),
        ['dap', '--python', 'p']);
});

test('the buttons debug and run their file', async () => {
    const folder = scratch();
    const editor = new Editor({ folders: [folder] }).activate();
    editor.look(path.join(folder, 'looked_at.py'));
    await editor.commands['sorrel.debugFile'](uri(path.join(folder, 'a.py')));
    await editor.commands['sorrel.runFile']();
    assert.deepEqual(editor.started.map(([, { program: file }, { noDebug }]) => [
        path.basename(file), noDebug]), [['a.py', false], ['looked_at.py', true]]);
});

test('the same configurations are offered for a launch.json and to be begun at once', () => {
    const editor = new Editor({ folders: ['/srv'] }).activate();
    assert.deepEqual(editor.offered(2), editor.offered(1));
    assert.deepEqual(editor.offered().map(({ name }) => name), ['Python 2: current file',
        'Python 2: module', 'Python 2: attach to port', 'Python 2: attach to process']);
    const alone = new Editor().activate();
    assert.ok(alone.offered().every((one) => !('cwd' in one)));
    for (const variable of JSON.stringify(editor.offered()).match(/\$\{command:[\w.]+/g)) {
        assert.ok(variable.slice('${command:'.length) in editor.commands, variable);
    }
});

test('Morvik is that of the setting, of the checkout, of a folder, or on the path', async () => {
    const [one, other, open] = [checkout(), checkout(), checkout()];
    const onPath = script('', 'morvik');
    const adapter = (folder, options) => new Editor(options).activate(folder).adapter();
    await withEnvironment({ ...NOTHING, PATH: path.dirname(onPath) }, async () => {
        const command = (folder) => [path.join(folder, 'morvik'), 'dap'];
        const setting = { settings: { 'sorrel.morvik': one }, folders: [open] };
        assert.deepEqual(await adapter(installed(path.join(other, 'morvik')), setting),
            command(one));
        setting.settings['sorrel.morvik'] = path.join(one, 'morvik');
        assert.deepEqual(await adapter(installed(), setting), command(one));
        assert.deepEqual(await adapter(EXTENSION, { folders: [open] }), [MORVIK, 'dap']);
        assert.deepEqual(await adapter(installed(path.join(other, 'morvik')), { folders: [open] }),
            command(other));
        assert.deepEqual(await adapter(installed('/gone/morvik'), { folders: [open] }),
            command(open));
        assert.deepEqual(await adapter(installed(), { folders: [scratch()] }), [onPath, 'dap']);
    });
});

test('an interpreter that Morvik is installed for is enough', async () => {
    const without = script('exit 1', 'python2.7');
    const first = script('test "$1" = -c', 'python');
    await withEnvironment({ ...NOTHING, PATH: [without, first].map(path.dirname).join(':') },
        async () => {
            assert.deepEqual(await new Editor().activate(installed()).adapter(),
                ['python', '-m', 'sorrel.main', 'dap']);
            const editor = new Editor({ settings: { 'sorrel.python': first } });
            assert.equal((await editor.activate(installed()).adapter())[0], first);
        });
});

test('where there is no Morvik the settings are offered instead of a session', async () => {
    const launch = { type: 'sorrel', request: 'launch', name: 'x', program: 'y' };
    await withEnvironment(NOTHING, async () => {
        const editor = new Editor({ answers: { button: 'Open Settings' } }).activate(installed());
        assert.equal(await editor.resolved(launch), undefined);
        assert.match(editor.shown[0], /^sorrel: Morvik is not found\. .*sorrel\.morvik/);
        await new Promise(setImmediate);
        assert.deepEqual(editor.executed, [['workbench.action.openSettings', 'sorrel']]);
        const wrong = new Editor({ settings: { 'sorrel.morvik': '/gone' } }).activate();
        assert.equal(await wrong.resolved(launch), undefined);
        assert.deepEqual(wrong.shown,
            ['sorrel: There is no morvik at /gone, which the setting sorrel.morvik names.']);
        const listens = { ...launch, debugServer: 5679 };
        assert.deepEqual(await editor.resolved(listens), listens);
    });
});

test('interpreters are found in environments and on the path, each once', async () => {
    const folder = scratch();
    const environment = path.join(folder, 'env', 'bin');
    fs.mkdirSync(environment, { recursive: true });
    fs.writeFileSync(path.join(environment, 'activate'), '');
    // What it has of its own is another prefix.
    script('printf "CPython\\n2.6.9\\nTrue\\n/env\\n"', 'python', environment);
    const bin = scratch();
    fs.symlinkSync(HOST, path.join(bin, 'python2.7'));
    fs.symlinkSync(HOST, path.join(bin, 'python2'));
    script('printf "\\n3.11.2\\nFalse\\n/usr\\n"', 'python', bin);
    const version = execFileSync(HOST, ['-c', 'import sys; print(sys.version.split()[0])'],
        { encoding: 'utf8', stdio: ['ignore', 'pipe', 'ignore'] }).trim();
    const chosen = path.join(environment, 'python');
    const editor = new Editor({ folders: [folder], settings: { 'sorrel.morvik': checkout() },
        answers: { pick: (items) => items.find((item) => item.description === chosen) } });
    editor.activate();
    await withEnvironment({ PATH: bin, PYENV_ROOT: folder }, async () => {
        await editor.commands['sorrel.selectInterpreter']();
    });
    const [first, second, third] = editor.asked.pick.first;
    assert.deepEqual([first.label, first.detail], ['Python 2.6.9 debug', 'virtual environment']);
    assert.ok(second.label.startsWith(`Python ${version}`), second.label);
    assert.deepEqual([second.description, third.label], [path.join(bin, 'python2.7'), 'Browse…']);
    assert.equal(editor.settings['sorrel.python'], chosen);
    assert.equal(editor.scopes['sorrel.python'], 2);
});

test('the interpreters that Morvik is built for are found', async () => {
    const editor = new Editor({ answers: { pick: () => undefined } }).activate();
    await withEnvironment({ PATH: '/nowhere', PYENV_ROOT: '/nowhere' }, async () => {
        assert.equal(await editor.commands['sorrel.pickInterpreter'](), undefined);
    });
    const files = editor.asked.pick.first.map((item) => item.description).filter(Boolean);
    assert.ok(files.map((file) => fs.realpathSync(file)).includes(fs.realpathSync(HOST)), files);
});

test('an interpreter of another kind is not taken', async () => {
    const other = script('printf "\\n3.11.2\\nFalse\\n/usr\\n"', 'python');
    const open = { pick: (items) => items[items.length - 1] };
    const editor = new Editor({ answers: { ...open, open: () => [uri(other)] } }).activate();
    assert.equal(await editor.commands['sorrel.pickInterpreter'](), undefined);
    assert.deepEqual(editor.shown, [`sorrel: ${other} is neither CPython 2.6 nor 2.7.`]);
    const right = new Editor({ answers: { ...open, open: () => [uri(HOST)] } }).activate();
    assert.equal(await right.commands['sorrel.pickInterpreter'](), HOST);
});

// A process as the system would list it.
function listed(proc, pid, file, words, started, maps = '') {
    const folder = path.join(proc, String(pid));
    fs.mkdirSync(folder);
    fs.symlinkSync(file, path.join(folder, 'exe'));
    fs.writeFileSync(path.join(folder, 'cmdline'), words.map((word) => `${word}\0`).join(''));
    fs.writeFileSync(path.join(folder, 'maps'), maps);
    fs.writeFileSync(path.join(folder, 'stat'),
        `${pid} (a) b) S ${'0 '.repeat(18)}${started} 0 0\n`);
}

test('processes that run Python 2 are listed, the latest first', () => {
    const proc = scratch();
    listed(proc, 10, '/usr/bin/python2.7', ['python', 'old.py'], 100);
    listed(proc, 11, '/usr/bin/python3.11', ['python3', 'x.py'], 500);
    listed(proc, 12, '/opt/build/bin/morvik-python (deleted)', ['morvik-python', 'a b'], 300);
    listed(proc, 13, '/usr/bin/server', ['server'], 200, '7f00 /usr/lib/libpython2.7.so.1.0\n');
    listed(proc, 14, '/usr/bin/python2.7', ['python', '-m', 'sorrel.main', 'dap'], 400);
    listed(proc, 15, '/bin/sh', ['sh'], 400);
    fs.mkdirSync(path.join(proc, '16'));
    assert.deepEqual(findProcesses(proc).map(({ pid, words }) => [pid, words.join(' ')]),
        [[12, 'morvik-python a b'], [13, 'server'], [10, 'python old.py']]);
    assert.deepEqual(findProcesses('/nowhere'), []);
});

test('a process is picked by its number', async () => {
    const file = program('import sys\nsys.stdin.read()\n', 'picked.py');
    const child = spawn(HOST, [file], { stdio: ['pipe', 'ignore', 'ignore'] });
    try {
        await new Promise((resolve) => child.once('spawn', resolve));
        const editor = new Editor({ answers: {
            pick: (items) => items.find(({ label }) => label === file) } }).activate();
        assert.equal(await editor.commands['sorrel.pickProcess'](), String(child.pid));
    } finally {
        child.kill('SIGKILL');
    }
});

test('a module and a port are asked for, and nothing else is taken', async () => {
    const editor = new Editor({ answers: { input: () => 'typed' } }).activate();
    for (const [name, right, wrong] of [['askModule', 'package.module', 'a b'],
        ['askPort', '5679', '65536']]) {
        assert.equal(await editor.commands[`sorrel.${name}`](), 'typed');
        const { validateInput } = editor.asked.input.first;
        assert.equal(validateInput(right), null);
        assert.ok(validateInput(wrong));
    }
});
