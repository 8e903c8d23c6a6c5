'use strict';
// The published client, with every message checked and every event kept until it is asked for.

const fs = require('fs');
const os = require('os');
const path = require('path');
const { DebugClient } = require('@vscode/debugadapter-testsupport');
const { Checker } = require('./schema');

const ROOT = path.resolve(__dirname, '..', '..', '..');
const MORVIK = path.join(ROOT, 'morvik');
const PATIENCE = Number(process.env.MORVIK_TEST_PATIENCE || 60) * 1000;

const fromAdapter = new Checker(true);
const toAdapter = new Checker(false);

class Client extends DebugClient {
    constructor(options = {}) {
        super(MORVIK, 'dap', 'morvik', options.spawn, process.env.MORVIK_TEST_STDERR);
        this.defaultTimeout = PATIENCE;
        this.kept = [];
        this.waiting = [];
        this.mistakes = [];
        this.sent = [];
        this.isHungUp = false;
        this.hasLeft = false;
        this.capabilities = options.capabilities || {};
        // Answers to what the adapter asks: functions of a request, by its command.
        this.reverse = {};
    }

    connect(readable, writable) {
        const send = writable.write.bind(writable);
        const checked = (data, encoding) => {
            this.sent.push(Buffer.from(data, encoding));
            this.note(toAdapter, JSON.parse(String(data).split('\r\n\r\n', 2)[1]));
            return send(data, encoding);
        };
        super.connect(readable, { write: checked });
        this.sendMessage = (message) => {
            const json = JSON.stringify(message);
            checked(`Content-Length: ${Buffer.byteLength(json)}\r\n\r\n${json}`, 'utf8');
        };
        this.closed = new Promise((resolve) => readable.once('close', resolve));
        this.closed.then(() => this.hangUp());
    }

    // As the published client does, but not for ever.
    send(command, args) {
        if (this.isHungUp) {
            return Promise.reject(new Error('the other side has hung up'));
        }
        this.hasLeft = this.hasLeft || command === 'disconnect';
        return patiently(super.send(command, args), () => `no answer to ${command}`);
    }

    // Nothing comes any more of what is waited for.
    hangUp() {
        this.isHungUp = true;
        for (const answered of this.pendingRequests.values()) {
            answered({ success: false, message: 'the other side has hung up' });
        }
        for (const waiter of this.waiting) {
            waiter.reject(new Error(`no event ${waiter.what}: the other side has hung up`));
        }
    }

    note(checker, message) {
        try {
            checker.check(message);
        } catch (mistake) {
            this.mistakes.push(mistake);
        }
    }

    dispatch(body) {
        const message = JSON.parse(body);
        this.note(fromAdapter, message);
        if (message.type === 'request') {
            this.answer(message);
            return;
        }
        if (message.type === 'event') {
            this.kept.push(message);
            this.deliver();
        }
        super.dispatch(body);
    }

    async answer(request) {
        const response = { type: 'response', seq: this.sequence++, request_seq: request.seq,
            command: request.command, success: true };
        try {
            response.body = await this.reverse[request.command](request.arguments);
        } catch (error) {
            response.success = false;
            response.message = error.message;
            response.body = { error: { id: 1, format: error.message } };
        }
        this.sendMessage(response);
    }

    deliver() {
        this.waiting = this.waiting.filter((waiter) => {
            const place = this.kept.findIndex(waiter.wanted);
            if (place >= 0) {
                waiter.resolve(this.kept.splice(place, 1)[0]);
            }
            return place < 0;
        });
    }

    // The body of the next event of this name, and of this kind if a test of it is given.
    next(name, test = () => true) {
        return this.wait(name, (message) => message.event === name && test(message.body))
            .then((message) => message.body);
    }

    // The body of the event of the next stop; null where the program ends without one.
    async nextStop() {
        const { event, body } = await this.wait('of a stop or the end',
            (message) => ['stopped', 'terminated'].includes(message.event));
        return event === 'stopped' ? body : null;
    }

    wait(what, wanted) {
        const event = new Promise((resolve, reject) => {
            this.waiting.push({ what, wanted, resolve, reject });
            this.deliver();
        });
        return patiently(event,
            () => `no event ${what}; kept: ${JSON.stringify(this.kept.slice(-20))}`);
    }

    // Whether an event of this name has come and has not been asked for.
    has(name) {
        return this.kept.some((message) => message.event === name);
    }

    async initialize(more = {}) {
        return (await this.send('initialize', {
            adapterID: 'morvik', linesStartAt1: true, columnsStartAt1: true, pathFormat: 'path',
            supportsVariablePaging: true, ...this.capabilities, ...more })).body;
    }

    // From the beginning until the program runs. configure: sets breakpoints and the like.
    async begin(command, args, configure = async () => {}) {
        this.announced = await this.initialize();
        await this.send(command, args);
        await this.next('initialized');
        await configure();
        await this.send('configurationDone');
    }

    async launch(args, configure) {
        await this.begin('launch', args, configure);
    }

    // Launches the program at this path and waits for it to stop at a breakpoint at these marks.
    async launchTo(file, marks, more = {}) {
        await this.launch({ program: file, ...more }, () => this.breakAt(
            file, ...[].concat(marks).map((mark) => line(file, mark))));
        return this.next('stopped');
    }

    async breakAt(file, ...breakpoints) {
        const wanted = breakpoints.map((one) => (typeof one === 'number' ? { line: one } : one));
        return (await this.send('setBreakpoints', {
            source: { path: file }, breakpoints: wanted })).body.breakpoints;
    }

    // Where a thread is: "function:line" of its innermost frame.
    async place(threadId = 1) {
        const [frame] = await this.stack(threadId, 1);
        return `${frame.name}:${frame.line}`;
    }

    async stack(threadId = 1, levels = 0) {
        const { body } = await this.send('stackTrace', { threadId, startFrame: 0, levels });
        return body.stackFrames;
    }

    // The next stop as "reason function:line".
    async stop() {
        const { reason, threadId } = await this.next('stopped');
        return `${reason} ${await this.place(threadId)}`;
    }

    async step(command, threadId = 1) {
        await this.send(command, { threadId });
        return this.stop();
    }

    go(threadId = 1) {
        return this.send('continue', { threadId });
    }

    async scope(name = 'Locals', frameId = undefined) {
        const id = frameId || (await this.stack(1, 1))[0].id;
        const { scopes } = (await this.send('scopes', { frameId: id })).body;
        return scopes.find((scope) => scope.name === name).variablesReference;
    }

    async variables(variablesReference, more = {}) {
        return (await this.send('variables', { variablesReference, ...more })).body.variables;
    }

    // A variable of the innermost frame by its name.
    async variable(name, scope = 'Locals') {
        const all = await this.variables(await this.scope(scope));
        return all.find((one) => one.name === name);
    }

    async evaluate(expression, context = 'watch', more = {}) {
        const frameId = (await this.stack(1, 1))[0].id;
        return (await this.send('evaluate', { expression, context, frameId, ...more })).body;
    }

    // What has been written to this category and not been asked for.
    written(category = 'stdout') {
        return this.kept.filter((message) => message.event === 'output'
            && message.body.category === category).map((message) => message.body.output).join('');
    }

    // The same when the program has ended.
    async outputs(category = 'stdout') {
        await this.next('terminated');
        return this.written(category);
    }

    // Ends the test: throws what was wrong with the messages.
    async end() {
        if (this._adapterProcess || this._socket) {
            // Whoever has answered that is about to end.
            if (!this.hasLeft) {
                await this.send('disconnect', {}).catch(() => {});
            }
            this.stopAdapter();
        }
        if (this.mistakes.length) {
            throw this.mistakes[0];
        }
    }
}

// The promise; rejects when it takes longer than anything should.
function patiently(promise, complaint) {
    let timer;
    const end = new Promise((_, reject) => {
        timer = setTimeout(() => reject(new Error(complaint())), PATIENCE);
    });
    return Promise.race([promise, end]).finally(() => clearTimeout(timer));
}

// Runs a test with a client that has been started; checks its messages at the end.
async function withClient(test, options = {}) {
    const client = new Client(options);
    await client.start(options.port);
    let failure = null;
    try {
        await test(client);
    } catch (error) {
        failure = error;
    }
    await client.end().catch((error) => {
        failure = failure || error;
    });
    if (failure) {
        throw failure;
    }
}

const scratches = [];
process.on('exit', () => {
    for (const folder of scratches) {
        fs.rmSync(folder, { recursive: true, force: true });
    }
});

// Programs that are killed leave their tokens there.
process.env.XDG_RUNTIME_DIR = scratch();

// A new folder, gone after the tests.
function scratch() {
    const folder = fs.mkdtempSync(path.join(fs.realpathSync(os.tmpdir()), 'morvik-'));
    scratches.push(folder);
    return folder;
}

// The path of a new program. Lines that other code speaks of are found by line().
function program(text, name = 'program.py', folder = scratch()) {
    const file = path.join(folder, name);
    fs.writeFileSync(file, text.replace(/^\n/, ''));
    return file;
}

// The number of the line with this mark.
function line(file, mark) {
    const lines = fs.readFileSync(file, 'utf8').split('\n');
    const place = lines.findIndex((text) => text.includes(mark));
    if (place < 0) {
        throw new Error(`no line with ${mark}`);
    }
    return place + 1;
}

module.exports = {
    Client, withClient, patiently, program, line, scratch, fromAdapter, MORVIK, ROOT };
