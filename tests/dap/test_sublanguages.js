'use strict';
// Programs with a language of their own: the client sees templates, not what they are made into.

const test = require('node:test');
const assert = require('node:assert');
const path = require('node:path');
const { withClient, line, ROOT } = require('./lib/client');
const { Listening } = require('./lib/listening');

const FOLDER = path.join(ROOT, 'examples', 'template_language');
const BILLS = path.join(FOLDER, 'bills.py');
const BILL = path.join(FOLDER, 'templates', 'bill.weft');
const ITEM = path.join(FOLDER, 'templates', 'item.weft');
const HOOK = 'weft.debugging:Hook';
const INCLUDE = line(BILL, 'include item');
const RENDERS = line(BILLS, 'print weft.render');

// The frames of the first thread, innermost first, as "file:line".
async function stack(client) {
    return (await client.stack()).map(
        (frame) => `${path.basename(frame.source.path)}:${frame.line}`);
}

function launch(client, configure) {
    return client.launch({ program: BILLS, hooks: [HOOK] }, configure);
}

test('a breakpoint stops at a line of a template', () => withClient(async (client) => {
    await launch(client, () => client.breakAt(BILL,
        { line: INCLUDE, condition: "order.what == 'crank'" }));
    assert.equal((await client.next('stopped')).reason, 'breakpoint');
    const [template, ...python] = await stack(client);
    assert.equal(template, `bill.weft:${INCLUDE}`);
    // Nothing of what implements the language.
    assert.deepEqual(python, [`bills.py:${RENDERS}`, `bills.py:${line(BILLS, '    main()')}`]);
    const [frame] = await client.stack();
    assert.equal(frame.source.path, BILL);
    // The hook evaluates in the language.
    assert.equal((await client.evaluate('sum')).result, '2500');
    assert.equal((await client.evaluate('order.what')).result, "'crank'");
    await client.breakAt(BILL);
    await client.go();
    await client.next('terminated');
}));

test('steps go over, into and out of templates', () => withClient(async (client) => {
    // When a template is included for the first time, library code is run to read it.
    await launch(client, () => client.breakAt(BILL, { line: INCLUDE, hitCondition: '2' }));
    await client.next('stopped');
    const after = async (command) => {
        await client.send(command, { threadId: 1 });
        await client.next('stopped');
        return (await stack(client))[0];
    };
    assert.equal(await after('stepIn'), 'item.weft:1');
    assert.deepEqual((await stack(client)).slice(0, 2), ['item.weft:1', `bill.weft:${INCLUDE}`]);
    assert.equal(await after('next'), 'item.weft:2');
    await client.breakAt(BILL);
    assert.match(await after('stepOut'), /^bill\.weft:/);
    assert.match(await after('next'), /^bill\.weft:/);
}));

test('an exception in a template is told at its line', () => withClient(async (client) => {
    await launch(client, () => client.send('setExceptionBreakpoints', { filters: ['uncaught'] }));
    assert.equal((await client.next('stopped')).reason, 'exception');
    const [template] = await stack(client);
    assert.match(template, /^item\.weft:/);
    const { description } = (await client.send('exceptionInfo', { threadId: 1 })).body;
    assert.match(description, /'Gift' object has no attribute/);
}));

test('a step from Python leads into the template', () => withClient(async (client) => {
    await launch(client, () => client.breakAt(BILLS, RENDERS));
    await client.next('stopped');
    await client.send('stepIn', { threadId: 1 });
    await client.next('stopped');
    assert.match((await stack(client))[0], /^bill\.weft:/);
}));

test('without the hook the Python behind it is shown', () => withClient(async (client) => {
    await client.launch({ program: BILLS },
        () => client.send('setExceptionBreakpoints', { filters: ['uncaught'] }));
    await client.next('stopped');
    const frames = await client.stack();
    assert.ok(frames.some((frame) => frame.source.name.endsWith('runtime.py')));
}));

test('a listening program shows its templates, too', async () => {
    const service = new Listening(BILLS, ['--wait', '--hook', HOOK]);
    try {
        const port = await service.port();
        await withClient(async (client) => {
            await client.begin('attach', { port }, () => client.breakAt(ITEM, 1));
            await client.next('stopped');
            assert.deepEqual((await stack(client)).slice(0, 2),
                ['item.weft:1', `bill.weft:${INCLUDE}`]);
        });
    } finally {
        await service.kill();
    }
});

test('a hook that is not there refuses the launch', () => withClient(async (client) => {
    await client.initialize();
    await assert.rejects(client.send('launch', { program: BILLS, hooks: ['weft.none:Hook'] }),
        /could not be started/);
    await client.next('terminated');
    assert.match(client.written('console'), /can't load hook 'weft\.none:Hook'/);
}));

test('variables are those of the template, and can be changed', () => withClient(async (client) => {
    await launch(client, () => client.breakAt(BILL, { line: INCLUDE }));
    await client.next('stopped');
    const [frame] = await client.stack();
    const { scopes } = (await client.send('scopes', { frameId: frame.id })).body;
    assert.deepEqual(scopes.map((scope) => scope.name), ['Locals']);
    const { variablesReference } = scopes[0];
    const { variables } = (await client.send('variables', { variablesReference })).body;
    const names = variables.map((variable) => variable.name);
    assert.ok(names.includes('sum') && !names.includes('scope') && !names.includes('write'));
    for (const { evaluateName, value } of variables) {
        assert.equal((await client.evaluate(evaluateName)).result, value);
    }
    const set = await client.send('setVariable', { variablesReference, name: 'sum', value: '1 + 1' });
    assert.equal(set.body.value, '2');
    assert.equal((await client.evaluate('sum')).result, '2');
    await client.send('setExpression', { frameId: frame.id, expression: 'order.what', value: '"x"' });
    assert.match((await client.evaluate('order.what')).result, /x/);
    const { targets } = (await client.send('completions',
        { frameId: frame.id, text: 'su', column: 3 })).body;
    assert.deepEqual(targets.map((target) => target.label), ['sum']);
}));
