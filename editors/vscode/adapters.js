'use strict';
// What is started as the debug adapter: that of a checkout of Morvik, or of an interpreter that it
// is installed for.

const fs = require('fs');
const path = require('path');
const programs = require('./programs');

const INTERPRETERS = ['python2.7', 'python2.6', 'python2', 'python'];

// The text is for the user.
class NotFound extends Error {}

// The adapter as its command and arguments. places: the folder of the extension, the folders that
// are open, the setting sorrel.morvik, and the interpreter of the program, '' for none.
async function findAdapter(places) {
    const command = checkoutCommand(places);
    if (command) {
        return { command,
            args: places.python ? ['dap', '--python', places.python] : ['dap'] };
    }
    for (const python of [places.python, process.env.MORVIK_PYTHON, ...INTERPRETERS]) {
        if (python && await hasMorvik(python)) {
            return { command: python, args: ['-m', 'sorrel.main', 'dap'] };
        }
    }
    throw new NotFound('Morvik is not found. Name the folder of its checkout in the setting'
        + ' sorrel.morvik, or in sorrel.python an interpreter that it is installed for.');
}

// The path of the command morvik; '' for none.
function checkoutCommand({ extension, folders, setting }) {
    if (setting) {
        return named(setting);
    }
    return [path.join(fs.realpathSync(extension), '..', '..', 'morvik'), remembered(extension),
        ...folders.map((folder) => path.join(folder, 'morvik'))].find(isOfCheckout)
        || programs.found('morvik');
}

function named(setting) {
    const command = [path.join(setting, 'morvik'), programs.found(setting)]
        .find(programs.isProgram);
    if (!command) {
        throw new NotFound(
            `There is no morvik at ${setting}, which the setting sorrel.morvik names.`);
    }
    return command;
}

// The command of the checkout that the extension was made in.
function remembered(extension) {
    try {
        return JSON.parse(fs.readFileSync(path.join(extension, 'morvik.json'), 'utf8')).morvik;
    } catch {
        return '';
    }
}

function isOfCheckout(command) {
    return programs.isProgram(command) && fs.existsSync(
        path.join(path.dirname(fs.realpathSync(command)), 'sorrel', 'main.py'));
}

async function hasMorvik(python) {
    return await programs.output(python, ['-c', 'import imp; imp.find_module("sorrel")']) !== null;
}

module.exports = { findAdapter, checkoutCommand, NotFound };
