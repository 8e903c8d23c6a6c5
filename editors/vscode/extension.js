'use strict';
// What the editor is given: configurations, the adapter, and commands.

const vscode = require('vscode');
const { ConfigurationProvider, TYPE, adapterFor, ofFile, offered } = require('./configurations');
const pickers = require('./pickers');

function activate({ extensionPath, subscriptions }) {
    const { Initial, Dynamic } = vscode.DebugConfigurationProviderTriggerKind;
    subscriptions.push(
        vscode.debug.registerDebugConfigurationProvider(
            TYPE, new ConfigurationProvider(extensionPath), Initial),
        // Without what resolves them, which would be called twice.
        vscode.debug.registerDebugConfigurationProvider(
            TYPE, { provideDebugConfigurations: offered }, Dynamic),
        vscode.debug.registerDebugAdapterDescriptorFactory(
            TYPE, { createDebugAdapterDescriptor: (session) => adapter(extensionPath, session) }),
        ...Object.entries(commands(extensionPath)).map(
            ([name, run]) => vscode.commands.registerCommand(`sorrel.${name}`, run)),
    );
}

async function adapter(extensionPath, { workspaceFolder, configuration }) {
    const { command, args } = await adapterFor(extensionPath, workspaceFolder, configuration);
    return new vscode.DebugAdapterExecutable(command, args);
}

function commands(extensionPath) {
    return {
        debugFile: (uri) => start(uri, false),
        runFile: (uri) => start(uri, true),
        selectInterpreter: () => pickers.selectInterpreter(extensionPath),
        pickInterpreter: () => pickers.pickInterpreter(extensionPath),
        pickProcess: () => pickers.pickProcess(),
        askModule: () => pickers.askModule(),
        askPort: () => pickers.askPort(),
    };
}

// uri: of the file whose button it was; none from the palette, where it is the one looked at.
function start(uri, noDebug) {
    const editor = vscode.window.activeTextEditor;
    const file = uri || (editor && editor.document.uri);
    return file && vscode.debug.startDebugging(
        vscode.workspace.getWorkspaceFolder(file), ofFile(file), { noDebug });
}

module.exports = { activate };
