'use strict';
// Programs of this machine: where they are, and what they say.

const { execFile } = require('child_process');
const fs = require('fs');
const path = require('path');

const PATIENCE = 10000;

function isProgram(file) {
    try {
        fs.accessSync(file, fs.constants.X_OK);
        return fs.statSync(file).isFile();
    } catch {
        return false;
    }
}

// All programs of this name on the path, the first one first.
function allOnPath(name) {
    return (process.env.PATH || '').split(path.delimiter)
        .filter(path.isAbsolute)
        .map((folder) => path.join(folder, name))
        .filter(isProgram);
}

// The program that a shell would start by this name or path; '' for none.
function found(name) {
    if (name.includes(path.sep)) {
        return isProgram(name) ? name : '';
    }
    return allOnPath(name)[0] || '';
}

// What a program writes; null where it fails, or does not end in time.
function output(program, args) {
    return new Promise((resolve) => {
        execFile(program, args, { timeout: PATIENCE }, (error, stdout) => {
            resolve(error ? null : stdout);
        });
    });
}

module.exports = { isProgram, allOnPath, found, output };
