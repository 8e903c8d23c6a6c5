'use strict';
// The manifest of the extension for editors: it says what is true, and what it says works.

const test = require('node:test');
const assert = require('node:assert');
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');
const Ajv = require('ajv');
const { Client, program, line, scratch, MORVIK } = require('./lib/client');
const { Editor, EXTENSION } = require('./lib/editor');
const { Listening } = require('./lib/listening');

const manifest = JSON.parse(fs.readFileSync(path.join(EXTENSION, 'package.json'), 'utf8'));
const { debuggers } = manifest.contributes;
const [sorrel] = debuggers;

// What an editor makes of a configuration: variables in texts are replaced.
function filledIn(value, variables) {
    return JSON.parse(JSON.stringify(value, (_, part) => (typeof part === 'string'
        ? part.replace(/\$\{(\w+)\}/g, (whole, name) => variables[name] || whole) : part)));
}

// The configuration that a snippet inserts when nothing is typed into its fields.
function inserted(snippet) {
    return JSON.parse(JSON.stringify(snippet.body)
        .replace(/"\^((?:[^"\\]|\\.)*)"/g, (_, raw) => JSON.parse(`"${raw}"`))
        .replace(/\$\{\d+:((?:[^}\\]|\\.)*)\}/g, '$1')
        .replace(/\\([$}])/g, '$1'));
}

// What the editor starts as the adapter, in an open folder that is not the checkout.
async function start() {
    const client = new Client({ spawn: { cwd: scratch() } });
    const [runtime, ...args] = await new Editor().activate().adapter();
    assert.equal(args.length, 1);
    [client._runtime, client._executable] = [runtime, args[0]];
    return client;
}

test('there is one debugger, for Python', () => {
    assert.equal(debuggers.length, 1);
    assert.deepEqual([sorrel.type, sorrel.languages], ['sorrel', ['python']]);
    const languages = manifest.contributes.breakpoints.map(({ language }) => language);
    assert.deepEqual([languages[0], new Set(languages).size], ['python', languages.length]);
});

test('its commands are those that the extension has, and each of them begins it', () => {
    const named = manifest.contributes.commands.map(({ command }) => command).sort();
    assert.deepEqual(Object.keys(new Editor().activate().commands).sort(), named);
    const events = manifest.activationEvents.filter((event) => event.startsWith('onCommand:'));
    assert.deepEqual(events.map((event) => event.slice('onCommand:'.length)).sort(), named);
    const used = [...Object.values(manifest.contributes.menus).flat().map((item) => item.command),
        ...Object.values(sorrel.variables)];
    assert.ok(used.every((command) => named.includes(command)), used);
});

test('its attributes are those that the server knows', () => {
    const known = JSON.parse(execFileSync(MORVIK, ['python', '--', '-c', `
import json
from sorrel.protocol import schema
print json.dumps([sorted(name.rstrip('?') for name in shape)
                  for shape in (schema.LAUNCH, schema.ATTACH)])
`], { stdio: ['ignore', 'pipe', 'ignore'] }));
    const described = ['launch', 'attach'].map((request) => Object.keys(
        sorrel.configurationAttributes[request].properties).sort());
    assert.deepEqual(described, known);
});

test('what it offers to insert is what it describes', () => {
    const ajv = new Ajv({ strict: false, allErrors: true });
    const check = (configuration) => {
        const { type, request, name, ...rest } = configuration;
        assert.equal(type, 'sorrel');
        assert.ok(name);
        const schema = { ...sorrel.configurationAttributes[request], type: 'object',
            additionalProperties: false };
        assert.ok(ajv.validate(schema, rest), ajv.errorsText());
    };
    new Editor({ folders: ['/srv'] }).activate().offered().forEach(check);
    sorrel.configurationSnippets.map(inserted).forEach(check);
    const [first] = sorrel.configurationSnippets.map(inserted);
    assert.deepEqual([first.program, first.cwd], ['${file}', '${workspaceFolder}']);
});

async function debugs(client, configuration, file, stopped) {
    await client.start();
    try {
        await client.begin(configuration.request, configuration,
            () => client.breakAt(file, line(file, '# here')));
        assert.equal(await client.stop(), `breakpoint <module>:${line(file, '# here')}`);
        assert.equal((await client.evaluate('said')).result, "'hello'");
        await client.breakAt(file);
        await stopped();
    } finally {
        await client.end();
    }
}

test('a file is debugged as the extension says', async () => {
    const file = program('said = "hello"\nprint said  # here\n');
    const [offered] = new Editor({ folders: ['/srv'] }).activate().offered();
    const client = await start();
    const configuration = filledIn(offered, { file, workspaceFolder: path.dirname(file) });
    await debugs(client, configuration, file, async () => {
        await client.go();
        assert.equal(await client.outputs(), 'hello\n');
    });
});

test('a listening program is debugged as the extension says', async () => {
    const file = program('said = "hello"\nwhile said:\n    said = said  # here\n');
    const service = new Listening(file);
    try {
        const editor = new Editor().activate();
        const typed = { ...editor.offered()[2], port: String(await service.port()) };
        const configuration = await editor.resolved(typed);
        const client = await start();
        await debugs(client, configuration, file, async () => {
            await client.evaluate('said = None', 'repl');
            await client.go();
            assert.equal((await client.next('exited')).exitCode, 0);
        });
    } finally {
        await service.kill();
    }
});
