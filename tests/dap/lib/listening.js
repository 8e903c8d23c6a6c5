'use strict';
// Programs that listen for clients, and connections to them without any client.

const { spawn } = require('node:child_process');
const net = require('node:net');
const { MORVIK } = require('./client');

const PATIENCE = Number(process.env.MORVIK_TEST_PATIENCE || 60) * 1000;

class Listening {
    // options: words for "./morvik run" besides --listen.
    constructor(file, options = [], args = [], place = '0') {
        this.process = spawn(MORVIK, ['run', '--listen', place, ...options, file, ...args], {
            stdio: ['pipe', 'pipe', 'pipe'] });
        this.out = '';
        this.err = '';
        this.process.stdout.on('data', (data) => { this.out += data; });
        this.process.stderr.on('data', (data) => { this.err += data; });
        this.ended = new Promise((resolve) => this.process.on('close', (code, signal) => {
            this.status = code;
            resolve(signal || code);
        }));
    }

    // The port it listens at.
    async port() {
        return Number(await this.said(/listening on 127\.0\.0\.1:(\d+)\n/));
    }

    // The token that a client has to show where the adapter does not do it.
    token() {
        return this.said(/token (\w+), also in .*\n/);
    }

    async said(pattern) {
        await until(() => pattern.test(this.err), () => `no ${pattern}: ${this.err}`);
        return pattern.exec(this.err)[1];
    }

    async wrote(text) {
        await until(() => this.out.includes(text), () => `no ${text} in ${this.out} ${this.err}`);
    }

    tell(text) {
        this.process.stdin.write(text);
    }

    kill() {
        this.process.kill('SIGKILL');
        return this.ended;
    }
}

async function until(condition, complaint) {
    const end = Date.now() + PATIENCE;
    while (!condition()) {
        if (Date.now() > end) {
            throw new Error(complaint());
        }
        await new Promise((resolve) => setTimeout(resolve, 5));
    }
}

// Whether there is such a process.
function isThere(pid) {
    try {
        process.kill(pid, 0);
        return true;
    } catch {
        return false;
    }
}

// A bare connection. data: everything received; hungUp: resolves when the other side has hung up.
function connect(port) {
    return new Promise((resolve, reject) => {
        const socket = net.createConnection(port, '127.0.0.1', () => resolve(socket));
        socket.received = '';
        socket.on('data', (data) => { socket.received += data; });
        socket.on('error', reject);
        socket.hungUp = new Promise((closed) => socket.on('close', closed));
    });
}

function frame(message) {
    const json = JSON.stringify(message);
    return `Content-Length: ${Buffer.byteLength(json)}\r\n\r\n${json}`;
}

module.exports = { Listening, connect, frame, isThere, until };
