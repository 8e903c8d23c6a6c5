'use strict';
// The interpreters of Python 2 on this machine.

const fs = require('fs');
const os = require('os');
const path = require('path');
const programs = require('./programs');

const NAMES = ['python2.7', 'python2.6', 'python2.7-dbg', 'python2.6-dbg', 'python2', 'python'];
// Also for Python 3 to run.
const DESCRIBE = `
import sys
print("%s\\n%d.%d.%d\\n%s\\n%s" % ((getattr(sys, "subversion", [""])[0],) + sys.version_info[:3]
    + (hasattr(sys, "gettotalrefcount"), sys.prefix)))
`;

// Those that can be meant, each once: its path, its version, and where it comes from. folders: the
// paths of those that are open; checkout: Morvik's, '' for none.
async function findInterpreters(folders, checkout) {
    const described = await Promise.all(candidates(folders, checkout).map(
        async ({ file, origin }) => ({ ...await describe(file), origin })));
    const seen = new Set();
    return described.filter(({ file, prefix }) => {
        const key = file && `${fs.realpathSync(file)} ${prefix}`;
        const isNew = key && !seen.has(key);
        seen.add(key);
        return isNew;
    });
}

// What an interpreter says of itself; null for what is no CPython 2.6 or 2.7.
async function describe(file) {
    const lines = (await programs.output(file, ['-E', '-c', DESCRIBE]) || '').split('\n');
    const [kind, version, isDebug, prefix] = lines;
    if (kind !== 'CPython' || !/^2\.[67]\./.test(version)) {
        return null;
    }
    return { file, version: isDebug === 'True' ? `${version} debug` : version, prefix };
}

function candidates(folders, checkout) {
    const from = (origin, files) => files.filter(programs.isProgram)
        .map((file) => ({ file, origin }));
    return [
        ...from('virtual environment', folders.flatMap(virtualEnvironments)),
        ...from('on the path', NAMES.flatMap(programs.allOnPath)),
        ...from('Morvik is built for it', checkout ? hosts(checkout) : []),
        ...from('pyenv', inPyenv()),
    ];
}

// The interpreters of virtual environments in a folder.
function virtualEnvironments(folder) {
    return [folder, ...below(folder), ...below(path.join(folder, '.tox'))]
        .filter((place) => fs.existsSync(path.join(place, 'bin', 'activate')))
        .map((place) => path.join(place, 'bin', 'python'));
}

// Those that a checkout is built for, and those that it has brought.
function hosts(checkout) {
    const built = below(path.join(checkout, 'build')).map((place) => {
        const cache = textOf(path.join(place, 'CMakeCache.txt'));
        return (/^MORVIK_PYTHON:FILEPATH=(.+)$/m.exec(cache) || [])[1];
    });
    const brought = path.join(checkout, '.deps', 'root', 'usr', 'bin');
    return [...built.filter(Boolean), ...NAMES.map((name) => path.join(brought, name))];
}

function inPyenv() {
    const root = process.env.PYENV_ROOT || path.join(os.homedir(), '.pyenv');
    return below(path.join(root, 'versions')).map((place) => path.join(place, 'bin', 'python'));
}

function below(folder) {
    try {
        return fs.readdirSync(folder).sort().map((name) => path.join(folder, name));
    } catch {
        return [];
    }
}

function textOf(file) {
    try {
        return fs.readFileSync(file, 'utf8');
    } catch {
        return '';
    }
}

module.exports = { findInterpreters, describe };
