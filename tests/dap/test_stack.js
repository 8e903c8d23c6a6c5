'use strict';
// Stacks, the sources of their frames, and what is loaded.

const test = require('node:test');
const assert = require('node:assert');
const { execFileSync } = require('node:child_process');
const path = require('node:path');
const { withClient, program, line, scratch } = require('./lib/client');

const DEEP = program(`
import sys
sys.setrecursionlimit(5000)
def down(depth):
    if depth == 0:
        return 'bottom'  # bottom
    return down(depth - 1)  # further
down(900)  # call
`);

function names(frames) {
    return frames.map((frame) => frame.name);
}

async function trace(client, more) {
    return (await client.send('stackTrace', { threadId: 1, ...more })).body;
}

test('a deep stack is given in pages', () => withClient(async (client) => {
    await client.launchTo(DEEP, '# bottom');
    const first = await trace(client, { startFrame: 0, levels: 1 });
    assert.equal(first.totalFrames, 902);
    assert.deepEqual(first.stackFrames.map((frame) => [frame.name, frame.line]),
        [['down', line(DEEP, '# bottom')]]);
    const middle = await trace(client, { startFrame: 450, levels: 20 });
    assert.equal(middle.stackFrames.length, 20);
    const last = await trace(client, { startFrame: 900, levels: 20 });
    assert.deepEqual(last.stackFrames.map((frame) => [frame.name, frame.line]),
        [['down', line(DEEP, '# further')], ['<module>', line(DEEP, '# call')]]);
    assert.deepEqual((await trace(client, { startFrame: 902, levels: 20 })).stackFrames, []);
    const all = await trace(client, {});
    assert.equal(all.stackFrames.length, 902);
    assert.equal(new Set(all.stackFrames.map((frame) => frame.id)).size, 902);
    // Each frame has variables of its own.
    const depths = [];
    for (const frame of [first.stackFrames[0], middle.stackFrames[0], last.stackFrames[0]]) {
        depths.push((await client.evaluate('depth', 'watch', { frameId: frame.id })).result);
    }
    assert.deepEqual(depths, ['0', '450', '900']);
}));

test('library frames are subtle under justMyCode', async () => {
    const file = program(`
import textwrap
class Text(str):
    def expandtabs(self):
        return self  # called back
textwrap.fill(Text('a b'))
`);
    for (const justMyCode of [true, false]) {
        await withClient(async (client) => {
            await client.launchTo(file, '# called back', { justMyCode });
            const frames = await client.stack();
            assert.equal(names(frames)[0], 'expandtabs');
            assert.equal(names(frames).at(-1), '<module>');
            assert.ok(frames.length > 4);
            for (const frame of frames) {
                const isOwn = frame.source.path === file;
                assert.equal(frame.presentationHint, isOwn || !justMyCode ? undefined : 'subtle');
            }
        });
    }
});

test('frames tell their module', () => withClient(async (client) => {
    const folder = scratch();
    const inner = program('def run(f):\n    return f()  # inner\n', 'inner.py', folder);
    const file = program('import inner\nprint inner.run(lambda: 1)\n', 'program.py', folder);
    await client.launch({ program: file }, () => client.breakAt(inner, 2));
    await client.next('stopped');
    const frames = await client.stack();
    assert.deepEqual(frames.map((frame) => [frame.name, frame.moduleId]),
        [['run', 'inner'], ['<module>', '__main__']]);
    const { modules } = (await client.send('modules', { startModule: 0 })).body;
    assert.ok(frames.every((frame) => modules.some((one) => one.id === frame.moduleId)));
}));

test('code that is in no file has the source that its loader knows', () =>
    withClient(async (client) => {
        const folder = scratch();
        const text = 'def run(f):\n    return f()\n';
        program(text, 'packed.py', folder);
        execFileSync(process.env.MORVIK_PYTHON, ['-c', `
import zipfile
zipfile.ZipFile('a.zip', 'w').write('packed.py')
`], { cwd: folder });
        require('node:fs').unlinkSync(path.join(folder, 'packed.py'));
        const file = program(`
import sys
sys.path.insert(0, sys.path[0] + '/a.zip')
import packed
made = {}
exec 'def run(f):\\n    return f()\\n' in made
print packed.run(lambda: made['run'](lambda: 1))  # callbacks
`, 'program.py', folder);
        await client.launchTo(file, '# callbacks');
        for (let step = 0; step < 4; step++) {
            await client.step('stepIn');
        }
        const frames = await client.stack();
        const sources = frames.map((frame) => frame.source);
        const packed = sources.find((source) => source.name.includes('packed.py'));
        assert.equal(packed.path, path.join(folder, 'a.zip', 'packed.py'));
        const read = async (source) => (await client.send('source', {
            source, sourceReference: source.sourceReference })).body;
        assert.equal((await read(packed)).content, text);
        // Code that was made of a text has its instructions.
        const made = sources.find((source) => source.name === '<string>');
        assert.match((await read(made)).content, /^# Bytecode of run/);
        await assert.rejects(client.send('source', { sourceReference: 9999 }), /not known/);
        // A file is given, too.
        const byPath = (await client.send('source', {
            source: { path: file }, sourceReference: 0 })).body;
        assert.equal(byPath.content, require('node:fs').readFileSync(file, 'utf8'));
    }));

test('modules and sources that are loaded are listed, and told of', () =>
    withClient(async (client) => {
        const folder = scratch();
        const late = program('X = 1\n', 'late.py', folder);
        const file = program(`
import textwrap
print 'before'  # before
import late
reload(late)
print 'after'  # after
`, 'program.py', folder);
        await client.launchTo(file, ['# before', '# after']);
        const list = async (args = { startModule: 0 }) => (await client.send('modules', args)).body;
        const { modules, totalModules } = await list();
        assert.equal(modules.length, totalModules);
        assert.deepEqual(modules[0], { id: '__main__', name: '__main__', path: file,
            isUserCode: true });
        assert.equal(modules.find((one) => one.name === 'textwrap').isUserCode, false);
        const page = await list({ startModule: 1, moduleCount: 2 });
        assert.deepEqual([page.modules, page.totalModules], [modules.slice(1, 3), totalModules]);
        const loaded = async () => (await client.send('loadedSources')).body.sources
            .map((source) => source.path);
        assert.ok((await loaded()).includes(file));
        assert.ok(!(await loaded()).includes(late));
        await client.go();
        const { reason, module } = await client.next(
            'module', (body) => body.module.name === 'late');
        assert.equal(reason, 'new');
        assert.deepEqual([module.path, module.isUserCode], [late, true]);
        await client.next('module', (body) => body.module.name === 'late'
            && body.reason === 'changed');
        await client.next('stopped');
        assert.ok((await loaded()).includes(late));
        assert.ok((await list()).modules.some((one) => one.name === 'late'));
        // The server's own modules are none of the program's.
        assert.ok(!(await list()).modules.some((one) => one.name.startsWith('sorrel')));
    }));

test('a frame of an earlier stop is not known any more', () => withClient(async (client) => {
    await client.launchTo(DEEP, '# bottom');
    const [frame] = await client.stack(1, 1);
    const locals = await client.scope('Locals', frame.id);
    await client.step('next');
    await assert.rejects(client.send('scopes', { frameId: frame.id }), /gone on/);
    await assert.rejects(client.variables(locals), /gone on/);
    await assert.rejects(client.evaluate('1', 'watch', { frameId: frame.id }), /gone on/);
    await assert.rejects(client.stack(12345), /no thread 12345/);
}));

test('paths are mapped', () => withClient(async (client) => {
    const mappings = [{ localRoot: '/home/me/project/', remoteRoot: path.dirname(DEEP) }];
    const local = `/home/me/project/${path.basename(DEEP)}`;
    await client.launch({ program: DEEP, pathMappings: mappings },
        () => client.breakAt(local, line(DEEP, '# bottom')));
    await client.next('stopped');
    assert.equal((await client.stack(1, 1))[0].source.path, local);
    assert.equal((await client.send('modules', { startModule: 0 })).body.modules[0].path, local);
}));
