'use strict';
// The extension folder for editors: it says what is true, and what it says works.

const test = require('node:test');
const assert = require('node:assert');
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');
const Ajv = require('ajv');
const { Client, program, line, scratch, MORVIK, ROOT } = require('./lib/client');
const { Listening } = require('./lib/listening');

const FOLDER = path.join(ROOT, 'editors', 'vscode');
const manifest = JSON.parse(fs.readFileSync(path.join(FOLDER, 'package.json'), 'utf8'));
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

function start(folder, environment) {
    const client = new Client({ spawn: { cwd: scratch(), env: environment || process.env } });
    client._runtime = path.join(folder, sorrel.program);
    client._executable = '';
    return client;
}

test('there is one debugger, for Python', () => {
    assert.equal(debuggers.length, 1);
    assert.deepEqual([sorrel.type, sorrel.languages], ['sorrel', ['python']]);
    assert.deepEqual(manifest.contributes.breakpoints, [{ language: 'python' }]);
    assert.equal(manifest.main, undefined);
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
    sorrel.initialConfigurations.forEach(check);
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

for (const [how, install] of [
    ['linked', (folder) => fs.symlinkSync(FOLDER, folder)],
    ['copied', (folder) => fs.cpSync(FOLDER, folder, { recursive: true })],
]) {
    test(`a program is debugged as the ${how} folder says`, async () => {
        const folder = path.join(scratch(), 'morvik.sorrel');
        install(folder);
        const file = program('said = "hello"\nprint said  # here\n');
        const environment = { ...process.env, PATH: `${ROOT}:${process.env.PATH}` };
        const client = start(folder, how === 'copied' ? environment : process.env);
        const configuration = filledIn(sorrel.initialConfigurations[0],
            { file, workspaceFolder: path.dirname(file) });
        await debugs(client, configuration, file, async () => {
            await client.go();
            assert.equal(await client.outputs(), 'hello\n');
        });
    });
}

test('a copied folder says what is missing', async () => {
    const folder = path.join(scratch(), 'morvik.sorrel');
    fs.cpSync(FOLDER, folder, { recursive: true });
    assert.throws(() => execFileSync(path.join(folder, sorrel.program),
        { stdio: 'pipe', env: { PATH: '/usr/bin:/bin' } }),
    /sorrel: no morvik beside .* nor on the path/);
});

test('a listening program is debugged as the folder says', async () => {
    const file = program('said = "hello"\nwhile said:\n    said = said  # here\n');
    const service = new Listening(file);
    try {
        const configuration = { ...sorrel.initialConfigurations[1], port: await service.port() };
        const client = start(FOLDER);
        await debugs(client, configuration, file, async () => {
            await client.evaluate('said = None', 'repl');
            await client.go();
            assert.equal((await client.next('exited')).exitCode, 0);
        });
    } finally {
        await service.kill();
    }
});
