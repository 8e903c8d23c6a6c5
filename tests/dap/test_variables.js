'use strict';
// What is shown of the program's values, and changed in them.

const test = require('node:test');
const assert = require('node:assert');
const { withClient, program } = require('./lib/client');

// Runs a test in a program that has stopped after these lines.
function stopped(text, use, more = {}) {
    return withClient(async (client) => {
        await client.launchTo(program(`${text}\npass  # stop\n`), '# stop', more);
        await use(client);
    });
}

// The variable of this name with its children, by their names.
async function opened(client, name, more = {}) {
    const variable = await client.variable(name);
    const children = variable.variablesReference
        ? await client.variables(variable.variablesReference, more) : [];
    return { ...variable, children,
        values: Object.fromEntries(children.map((one) => [one.name, one.value])) };
}

test('scopes hold variables of functions, classes and modules', () => withClient(async (client) => {
    const file = program(`
word = 'global'
def run(first, second=2, *rest, **named):
    zeta = 1
    alpha = lambda: zeta
    class Inside:
        x = 3
        pass  # class
    return alpha()  # return
run(1, 3, 4, key=5)
`);
    await client.launchTo(file, ['# class', '# return']);
    const scopes = async () => (await client.send('scopes', {
        frameId: (await client.stack(1, 1))[0].id })).body.scopes;
    assert.deepEqual((await scopes()).map((scope) => [scope.name, scope.presentationHint,
        scope.expensive]), [['Locals', 'locals', false], ['Globals', 'globals', true]]);
    let locals = await client.variables(await client.scope('Locals'));
    assert.ok(locals.some((one) => one.name === 'x' && one.value === '3'));
    await client.go();
    await client.next('stopped');
    locals = await client.variables(await client.scope('Locals'));
    // The arguments first, in their order.
    assert.deepEqual(locals.map((one) => one.name),
        ['first', 'second', 'rest', 'named', 'alpha', 'Inside', 'zeta']);
    assert.deepEqual(locals.slice(0, 4).map((one) => one.value), ['1', '3', '(4,)', "{'key': 5}"]);
    const word = await client.variable('word', 'Globals');
    assert.deepEqual([word.value, word.type, word.evaluateName], ["'global'", 'str', 'word']);
    await client.send('stepOut', { threadId: 1 });
    await client.next('stopped');
    assert.deepEqual((await scopes()).map((scope) => scope.name), ['Locals']);
    assert.equal((await client.variable('(return) run')).value, '1');
}));

test('values of every kind are shown', () => stopped(`# -*- coding: utf-8 -*-
import collections, array
nothing, yes, number, big = None, True, 12, 2L ** 80
real, complex_ = 0.5, 1j
text, word, quoted = u'\\xe4\\u20ac', 'b\\xff\\n', "it's"
items, pair, one, none = [1, [2]], (1, 'a'), (1,), []
table = {'a': 1, 2: u'b'}
some, fixed = set([1]), frozenset([2])
queue = collections.deque([1, 2])
Point = collections.namedtuple('Point', 'x y')
point = Point(1, 2)
bytes_ = bytearray('ab')
values = array.array('i', [1, 2])
span = xrange(10)
def function(): pass
class Old: pass
class New(object): pass
old, new = Old(), New()
`, async (client) => {
    const globals = await client.variables(await client.scope('Locals'));
    const shown = Object.fromEntries(globals.map((one) => [one.name, one]));
    const value = (name) => shown[name].value;
    const expected = {
        nothing: ['None', 'NoneType'], yes: ['True', 'bool'], number: ['12', 'int'],
        big: ['1208925819614629174706176L', 'long'], real: ['0.5', 'float'],
        complex_: ['1j', 'complex'], text: ["u'\u00e4\u20ac'", 'unicode'],
        word: ["'b\\xff\\n'", 'str'], quoted: ['"it\'s"', 'str'],
        items: ['[1, [2]]', 'list'], pair: ["(1, 'a')", 'tuple'], one: ['(1,)', 'tuple'],
        none: ['[]', 'list'], some: ['set([1])', 'set'], fixed: ['frozenset([2])', 'frozenset'],
        queue: ['deque([1, 2])', 'deque'], point: ['Point(x=1, y=2)', 'Point'],
        bytes_: ["bytearray(b'ab')", 'bytearray'], values: ["array('i', [1, 2])", 'array'],
        span: ['xrange(10)', 'xrange'],
    };
    for (const [name, [text, type]] of Object.entries(expected)) {
        assert.deepEqual([value(name), shown[name].type], [text, type], name);
    }
    assert.ok(["{'a': 1, 2: u'b'}", "{2: u'b', 'a': 1}"].includes(value('table')));
    const functions = await client.variables(shown['(functions)'].variablesReference);
    assert.match(functions[0].value, /^<function function at /);
    assert.match(value('Old'), /^<class __main__\.Old at |__main__\.Old/);
    assert.match(value('new'), /^<__main__\.New object at /);
    assert.equal(shown.old.type, 'Old');
    // What has no parts cannot be opened.
    for (const name of ['nothing', 'number', 'text', 'word', 'none', 'span']) {
        assert.equal(shown[name].variablesReference, 0, name);
    }
}));

test('containers are opened to their items', () => stopped(`
items = ['a', [1, 2]]
table = {'key': 1, 2: 'two', (1, 2): 3, u'\\xe4': 4, None: 5}
some = set(['x'])
`, async (client) => {
    const items = await opened(client, 'items');
    assert.deepEqual(items.values, { '[0]': "'a'", '[1]': '[1, 2]' });
    assert.equal(items.indexedVariables, 2);
    assert.deepEqual(items.children.map((one) => one.evaluateName), ['items[0]', 'items[1]']);
    const inner = await client.variables(items.children[1].variablesReference);
    assert.deepEqual(inner.map((one) => one.evaluateName), ['items[1][0]', 'items[1][1]']);
    const table = await opened(client, 'table');
    assert.deepEqual(table.values, { "'key'": '1', '2': "'two'", '(1, 2)': '3',
        "u'\u00e4'": '4', 'None': '5' });
    for (const child of table.children.filter((one) => one.evaluateName)) {
        assert.equal((await client.evaluate(child.evaluateName)).result, child.value);
    }
    assert.ok(table.children.filter((one) => one.evaluateName).length >= 4);
    assert.deepEqual(Object.values((await opened(client, 'some')).values), ["'x'"]);
}));

test('objects are opened to their attributes without running their code', () => stopped(`
class Base(object):
    shared = 1
    @property
    def computed(self):
        calls.append('computed')
        return self.own * 2
    @property
    def failing(self):
        raise ValueError('no value')
class Child(Base):
    __slots__ = ('slot', 'empty')
    def __init__(self):
        self.own = 21
        self.slot = 's'
    def __getattr__(self, name):
        calls.append(name)
        raise AttributeError(name)
    def __repr__(self):
        return 'Child!'
class Old:
    def __init__(self):
        self.x = 1
    def __getattr__(self, name):
        calls.append(name)
        raise AttributeError(name)
calls = []
child, old = Child(), Old()
del calls[:]
`, async (client) => {
    const child = await opened(client, 'child');
    assert.equal(child.value, 'Child!');
    assert.equal(child.values.own, '21');
    assert.equal(child.values.slot, "'s'");
    assert.ok(!('empty' in child.values));
    assert.deepEqual((await opened(client, 'old')).values, { x: '1', '(special names)': '' });
    // Properties wait to be asked for.
    const lazy = (name) => child.children.find((one) => one.name === name);
    assert.equal(lazy('computed').presentationHint.lazy, true);
    const called = async () => (await client.evaluate('calls')).result;
    const before = await called();
    assert.ok(!before.includes('computed'), before);
    const [computed] = await client.variables(lazy('computed').variablesReference);
    assert.equal(computed.value, '42');
    assert.ok((await called()).includes("'computed'"));
    const [failing] = await client.variables(lazy('failing').variablesReference);
    assert.equal(failing.value, 'ValueError: no value');
}));

test('long containers are given in pages', () => stopped(`
million = range(1000000)
table = dict.fromkeys(range(2000))
class Items(list):
    pass
items = Items(range(5))
items.note = 'n'
`, async (client) => {
    const million = await client.variable('million');
    assert.equal(million.indexedVariables, 1000000);
    assert.ok(million.value.length < 2000);
    const reference = million.variablesReference;
    const page = await client.variables(reference, { filter: 'indexed', start: 999990, count: 20 });
    assert.deepEqual(page.map((one) => [one.name, one.value]),
        Array.from({ length: 10 }, (_, i) => [`[${999990 + i}]`, `${999990 + i}`]));
    assert.deepEqual(await client.variables(reference, { filter: 'named' }), []);
    // Who asks for all gets a part and the rest to open.
    let all = await client.variables(reference);
    assert.ok(all.length < 2000);
    const rest = all.at(-1);
    assert.equal(rest.indexedVariables + all.length - 1, 1000000);
    const next = await client.variables(rest.variablesReference);
    assert.equal(next[0].name, `[${all.length - 1}]`);
    assert.equal(next[0].evaluateName, `million[${all.length - 1}]`);
    const table = await client.variable('table');
    const some = await client.variables(table.variablesReference,
        { filter: 'indexed', start: 1998, count: 5 });
    assert.equal(some.length, 2);
    const items = await client.variable('items');
    assert.equal(items.indexedVariables, 5);
    assert.deepEqual((await client.variables(items.variablesReference, { filter: 'named' }))
        .map((one) => one.name), ['note']);
    all = await client.variables(items.variablesReference);
    assert.deepEqual(all.map((one) => one.name), ['note', '[0]', '[1]', '[2]', '[3]', '[4]']);
}));

test('cycles can be followed as long as one likes', () => stopped(`
ring = []
ring.append(ring)
table = {}
table['self'] = table
class Node(object): pass
node = Node()
node.next = node
`, async (client) => {
    let { variablesReference, value } = await client.variable('ring');
    assert.ok(value.length < 100);
    for (let depth = 0; depth < 50; depth++) {
        const [inner] = await client.variables(variablesReference);
        assert.equal(inner.type, 'list');
        variablesReference = inner.variablesReference;
    }
    assert.equal((await opened(client, 'table')).children[0].type, 'dict');
    assert.equal((await opened(client, 'node')).children[0].name, 'next');
}));

test('objects that do harm when they are looked at do none', () => stopped(`
class Raises(object):
    def __repr__(self):
        raise ValueError('no repr')
    def __getattribute__(self, name):
        raise ValueError('no attribute')
class Endless(object):
    def __repr__(self):
        while True:
            pass
class EndlessGetattr:
    def __getattr__(self, name):
        while True:
            pass
class NotText(object):
    def __repr__(self):
        return 12
class Exits(object):
    def __repr__(self):
        raise SystemExit(3)
class Interrupts(object):
    def __repr__(self):
        raise KeyboardInterrupt
class Bytes(object):
    def __repr__(self):
        return '\\xff' * 5000
class Deep(object):
    def __repr__(self):
        return repr(self)
class BadLength(list):
    def __len__(self):
        raise ValueError('no length')
    def __iter__(self):
        raise ValueError('no items')
class BadHash(object):
    def __eq__(self, other):
        raise ValueError('no comparing')
    def __hash__(self):
        return 1
class Meta(type):
    def __getattribute__(self, name):
        raise ValueError('no class')
class Classless(object):
    __metaclass__ = Meta
    @property
    def __class__(self):
        raise ValueError('no class')
raises, endless, endless_getattr, not_text = Raises(), Endless(), EndlessGetattr(), NotText()
exits, interrupts, bytes_, deep = Exits(), Interrupts(), Bytes(), Deep()
bad_length, bad_hash, classless = BadLength([1]), {BadHash(): 1}, Classless()
many = [Endless() for _ in range(100)]
`, async (client) => {
    const globals = await client.variables(await client.scope('Locals'));
    const shown = Object.fromEntries(globals.map((one) => [one.name, one]));
    assert.match(shown.raises.value, /Raises.*ValueError: no repr/);
    assert.match(shown.endless.value, /Endless.*does not end/);
    assert.match(shown.exits.value, /SystemExit/);
    assert.ok(shown.bytes_.value.length <= 1010);
    assert.match(shown.deep.value, /Deep.*recursion/);
    assert.equal(shown.bad_length.indexedVariables, 1);
    assert.equal(shown.classless.type, 'Classless');
    for (const { name, variablesReference } of globals) {
        if (variablesReference) {
            await client.variables(variablesReference, { start: 0, count: 20 });
        } else {
            assert.ok(shown[name].value, name);
        }
    }
    // The thread is as well as before.
    assert.equal((await client.evaluate('1 + 1')).result, '2');
    await client.go();
    assert.equal((await client.next('exited')).exitCode, 0);
}, { evaluationTimeout: 0.5 }));

test('variables are given other values', () => withClient(async (client) => {
    const file = program(`
word = 'global'
class Thing(object):
    def __init__(self):
        self.attribute = 1
def run(argument):
    items, table, pair, thing = [1, 2], {'k': 1}, (1, 2), Thing()
    outer = 1
    def inside():
        return outer
    pass  # stop
    print argument, word, items, table, pair, thing.attribute, outer, inside()
run('x')
`);
    await client.launchTo(file, '# stop');
    const set = async (variablesReference, name, value) => (await client.send('setVariable', {
        variablesReference, name, value })).body;
    const locals = await client.scope('Locals');
    assert.deepEqual(await set(locals, 'argument', "'y' * 2").then(({ value, type }) => [value,
        type]), ["'yy'", 'str']);
    await set(locals, 'outer', '5');
    await set(await client.scope('Globals'), 'word', 'argument + "!"');
    const reference = async (name) => (await client.variable(name)).variablesReference;
    const list = await set(await reference('items'), '[1]', '[argument]');
    assert.equal(list.value, "['yy']");
    assert.deepEqual((await client.variables(list.variablesReference)).map((one) => one.value),
        ["'yy'"]);
    await set(await reference('table'), "'k'", '7');
    await set(await reference('thing'), 'attribute', '8');
    await assert.rejects(set(await reference('pair'), '[0]', '9'), /cannot be changed/);
    await assert.rejects(set(locals, 'none_such', '9'), /no variable none_such/);
    await assert.rejects(set(locals, 'outer', '1 +'), /SyntaxError/);
    await assert.rejects(set(locals, 'outer', 'unknown'), /NameError/);
    const expressions = async (expression, value) => (await client.send('setExpression', {
        expression, value, frameId: (await client.stack(1, 1))[0].id })).body;
    assert.equal((await expressions('items[0]', '10 + 1')).value, '11');
    await expressions('table["new"]', 'outer');
    await expressions('thing.attribute', '80');
    await assert.rejects(expressions('1', '2'), /SyntaxError/);
    await assert.rejects(expressions('pair[0]', '2'), /TypeError/);
    await client.go();
    const out = await client.outputs();
    assert.match(out, /^yy yy! \[11, \['yy'\]\] \{.*\} \(1, 2\) 80 5 5\n$/);
    assert.match(out, /'k': 7/);
    assert.match(out, /'new': 5/);
}));

test('variables of outer frames are given other values', () => withClient(async (client) => {
    const file = program(`
def inner():
    return 1  # stop
def outer():
    x = 1
    inner()
    print x
outer()
`);
    await client.launchTo(file, '# stop');
    const [, outer] = await client.stack();
    await client.send('setVariable', { name: 'x', value: '5',
        variablesReference: await client.scope('Locals', outer.id) });
    assert.equal((await client.evaluate('x', 'watch', { frameId: outer.id })).result, '5');
    await client.go();
    assert.equal(await client.outputs(), '5\n');
}));
