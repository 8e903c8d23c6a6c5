'use strict';
// What is debugged: the configurations that are offered, and what becomes of one before it begins.

const path = require('path');
const vscode = require('vscode');
const { findAdapter, NotFound } = require('./adapters');
const settings = require('./settings');

const TYPE = 'sorrel';
const OPEN_SETTINGS = 'Open Settings';

// To be copied into a new launch.json, or to be begun at once.
function offered(folder) {
    const cwd = folder ? { cwd: '${workspaceFolder}' } : {};
    const launch = { type: TYPE, request: 'launch' };
    const attach = { type: TYPE, request: 'attach' };
    return [
        { ...launch, name: 'Python 2: current file', program: '${file}', ...cwd },
        { ...launch, name: 'Python 2: module', module: '${command:sorrel.askModule}', ...cwd },
        { ...attach, name: 'Python 2: attach to port', port: '${command:sorrel.askPort}' },
        { ...attach, name: 'Python 2: attach to process',
            processId: '${command:sorrel.pickProcess}' },
    ];
}

// For a file without a launch.json.
function ofFile(uri) {
    const folder = vscode.workspace.getWorkspaceFolder(uri);
    return { type: TYPE, request: 'launch', name: 'Python 2: current file', program: uri.fsPath,
        cwd: folder ? folder.uri.fsPath : path.dirname(uri.fsPath) };
}

// Why the file that is looked at cannot be debugged; '' where it can.
function complaint(document) {
    if (!document) {
        return 'Open the Python file that is to be debugged.';
    }
    if (document.languageId !== 'python') {
        return `${path.basename(document.uri.fsPath)} is no Python file.`;
    }
    return document.uri.scheme === 'file' ? '' : 'Save the file that is to be debugged.';
}

class ConfigurationProvider {
    constructor(extension) {
        this.extension = extension;
    }

    provideDebugConfigurations(folder) {
        return offered(folder);
    }

    resolveDebugConfiguration(folder, configuration) {
        let resolved = configuration;
        // Without a launch.json nothing, or only noDebug, is given.
        if (!configuration.type && !configuration.request) {
            const editor = vscode.window.activeTextEditor;
            const why = complaint(editor && editor.document);
            if (why) {
                vscode.window.showInformationMessage(`sorrel: ${why}`);
                return undefined;
            }
            resolved = { ...ofFile(editor.document.uri), ...withoutNulls(configuration) };
        }
        const python = settings.pathSetting('python', folder || settings.currentFolder());
        return resolved.request === 'launch' && !resolved.python && python
            ? { ...resolved, python } : resolved;
    }

    async resolveDebugConfigurationWithSubstitutedVariables(folder, configuration) {
        // What replaces a variable is a string.
        const isNumber = typeof configuration.port === 'string' && /^\d+$/.test(configuration.port);
        const resolved = isNumber
            ? { ...configuration, port: Number(configuration.port) } : configuration;
        try {
            // What listens for the editor itself needs no adapter.
            if (resolved.debugServer === undefined) {
                await adapterFor(this.extension, folder, resolved);
            }
            return resolved;
        } catch (error) {
            if (!(error instanceof NotFound)) {
                throw error;
            }
            offerSettings(error.message);
            return undefined;
        }
    }
}

function withoutNulls(configuration) {
    return Object.fromEntries(Object.entries(configuration).filter(([, value]) => value));
}

// The adapter for a configuration, as its command and arguments. Throws NotFound.
function adapterFor(extension, folder, configuration) {
    const place = folder || settings.currentFolder();
    const [python] = [].concat(configuration.python || settings.pathSetting('python', place));
    return findAdapter({ extension, folders: settings.folders(),
        setting: settings.pathSetting('morvik', place), python });
}

async function offerSettings(why) {
    if (await vscode.window.showErrorMessage(`sorrel: ${why}`, OPEN_SETTINGS) === OPEN_SETTINGS) {
        await vscode.commands.executeCommand('workbench.action.openSettings', TYPE);
    }
}

module.exports = { ConfigurationProvider, TYPE, adapterFor, ofFile, offered };
