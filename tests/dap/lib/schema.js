'use strict';
// Checks messages against the protocol's types, as its makers publish them.

const fs = require('fs');
const path = require('path');
const Ajv = require('ajv');

const TYPES = require.resolve('@vscode/debugprotocol/lib/debugProtocol.d.ts');
const MADE_FROM_TYPES = /^DebugProtocol\..*(Request|Response|Event)$/;

// The schema of all messages, made once for each set of installed packages.
function schema(noExtraProps) {
    const kept = path.join(path.dirname(TYPES), noExtraProps ? 'strict.json' : 'loose.json');
    if (fs.existsSync(kept)) {
        return JSON.parse(fs.readFileSync(kept, 'utf8'));
    }
    const TJS = require('typescript-json-schema');
    const settings = { required: true, noExtraProps, ignoreErrors: true };
    const generator = TJS.buildGenerator(TJS.getProgramFromFiles([TYPES], {}), settings);
    const names = generator.getUserSymbols().filter((name) => MADE_FROM_TYPES.test(name));
    const made = generator.getSchemaForSymbols(names);
    // Whole or not at all: tests of other hosts may be looking.
    const unfinished = `${kept}.${process.pid}`;
    fs.writeFileSync(unfinished, JSON.stringify(made));
    fs.renameSync(unfinished, kept);
    return made;
}

class Checker {
    // noExtraProps: whether what the protocol does not know is a mistake.
    constructor(noExtraProps) {
        this.schema = schema(noExtraProps);
        this.ajv = new Ajv({ strict: false, allErrors: true, verbose: true });
        this.ajv.addSchema(this.schema, 'dap');
        this.seen = new Set();
    }

    // Throws where a message is not what its type says.
    check(message) {
        const name = typeName(message);
        if (!(name in this.schema.definitions)) {
            throw new Error(`no type ${name} for ${JSON.stringify(message)}`);
        }
        const validate = this.ajv.getSchema(`dap#/definitions/${name}`);
        if (!validate(message)) {
            const complaint = this.ajv.errorsText(validate.errors);
            throw new Error(`not a ${name}: ${complaint}: ${JSON.stringify(message)}`);
        }
        this.seen.add(name);
    }
}

function typeName(message) {
    const capital = (word) => word[0].toUpperCase() + word.slice(1);
    switch (message.type) {
        case 'event': return `DebugProtocol.${capital(message.event)}Event`;
        case 'request': return `DebugProtocol.${capital(message.command)}Request`;
        default:
            return message.success ? `DebugProtocol.${capital(message.command)}Response`
                : 'DebugProtocol.ErrorResponse';
    }
}

module.exports = { Checker };
