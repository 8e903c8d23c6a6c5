'use strict';
// The processes that run Python 2, as the system lists them.

const fs = require('fs');
const path = require('path');

const INTERPRETER = /^(python(2(\.[67])?)?(-dbg|_d)?|morvik-python)$/;
const EMBEDDED = /\/libpython2\.[67]/;
const ADAPTER = '\0-m\0sorrel.main\0dap\0';
// The 22nd field of a process's line: when it was started.
const STARTED = 21;

// Those of this user, the one that was started last first.
function findProcesses(proc = '/proc') {
    let names = [];
    try {
        names = fs.readdirSync(proc);
    } catch {
        // A system that does not list them in files: there no process can be attached to.
    }
    return names.filter((name) => /^\d+$/.test(name))
        .map((name) => described(path.join(proc, name), Number(name)))
        .filter(Boolean)
        .sort((one, other) => other.started - one.started || other.pid - one.pid);
}

// A process as its number, its words and its start; null for another one, or one that has ended.
function described(folder, pid) {
    const read = (name) => fs.readFileSync(path.join(folder, name), 'utf8');
    try {
        if (fs.statSync(folder).uid !== process.getuid() || !runsPython(folder, read)) {
            return null;
        }
        const commandLine = read('cmdline');
        if (!commandLine || commandLine.includes(ADAPTER)) {
            return null;
        }
        // A name may have blanks and brackets in it.
        const fields = read('stat').replace(/^.*\)/s, 'pid name').split(' ');
        return { pid, words: commandLine.replace(/\0$/, '').split('\0'),
            started: Number(fields[STARTED]) };
    } catch {
        return null;
    }
}

function runsPython(folder, read) {
    const file = fs.readlinkSync(path.join(folder, 'exe')).replace(/ \(deleted\)$/, '');
    return INTERPRETER.test(path.basename(file)) || EMBEDDED.test(read('maps'));
}

module.exports = { findProcesses };
