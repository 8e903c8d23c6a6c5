'use strict';
// What the user is asked for: an interpreter, a process, a module, a port.

const path = require('path');
const vscode = require('vscode');
const { checkoutCommand } = require('./adapters');
const { findInterpreters, describe } = require('./interpreters');
const { findProcesses } = require('./processes');
const settings = require('./settings');

const BROWSE = { label: 'Browse…', alwaysShow: true };

// The path of an interpreter; undefined where none is chosen, as for all that follow.
async function pickInterpreter(extension) {
    const chosen = await vscode.window.showQuickPick(interpreterItems(extension),
        { placeHolder: 'A CPython 2.6 or 2.7', matchOnDescription: true });
    return chosen === BROWSE ? browse() : chosen && chosen.description;
}

async function interpreterItems(extension) {
    const found = await findInterpreters(settings.folders(), checkout(extension));
    return [...found.map(({ file, version, origin }) => (
        { label: `Python ${version}`, description: file, detail: origin })), BROWSE];
}

// The folder of Morvik's checkout; '' for none.
function checkout(extension) {
    const setting = settings.pathSetting('morvik', settings.currentFolder());
    try {
        const command = checkoutCommand({ extension, folders: settings.folders(), setting });
        return command && path.dirname(command);
    } catch {
        return '';
    }
}

async function browse() {
    const [chosen] = await vscode.window.showOpenDialog({ openLabel: 'Select Interpreter' }) || [];
    if (chosen && !await describe(chosen.fsPath)) {
        vscode.window.showErrorMessage(
            `sorrel: ${chosen.fsPath} is neither CPython 2.6 nor 2.7.`);
        return undefined;
    }
    return chosen && chosen.fsPath;
}

// Sets the interpreter of programs whose configuration names none.
async function selectInterpreter(extension) {
    const file = await pickInterpreter(extension);
    if (file) {
        const { Global, Workspace } = vscode.ConfigurationTarget;
        await vscode.workspace.getConfiguration('sorrel').update('python', file,
            vscode.workspace.workspaceFolders ? Workspace : Global);
    }
}

// The number of a process, as a string, which is what variables are replaced by.
async function pickProcess() {
    const items = findProcesses().map(({ pid, words }) => ({
        label: words.slice(1).join(' ') || path.basename(words[0]),
        description: String(pid),
        detail: words.join(' ') }));
    if (!items.length) {
        vscode.window.showInformationMessage('sorrel: no process of yours runs Python 2 here.');
        return undefined;
    }
    const chosen = await vscode.window.showQuickPick(items,
        { placeHolder: 'The process to debug', matchOnDescription: true, matchOnDetail: true });
    return chosen && chosen.description;
}

function askModule() {
    return vscode.window.showInputBox({ prompt: 'The module to debug, as after the option -m',
        validateInput: (text) => (/^\w+(\.\w+)*$/.test(text) ? null : 'The name of a module') });
}

function askPort() {
    return vscode.window.showInputBox({ prompt: 'The port that the program listens at',
        value: '5679',
        validateInput: (text) => (isPort(text) ? null : 'A number from 1 to 65535') });
}

function isPort(text) {
    return /^\d{1,5}$/.test(text) && Number(text) > 0 && Number(text) < 65536;
}

module.exports = { pickInterpreter, selectInterpreter, pickProcess, askModule, askPort };
