'use strict';
// A stand-in for the editor, as much of it as the extension uses.

const Module = require('node:module');
const fs = require('node:fs');
const path = require('node:path');
const { ROOT } = require('./client');

const EXTENSION = path.join(ROOT, 'editors', 'vscode');

class DebugAdapterExecutable {
    constructor(command, args) {
        Object.assign(this, { command, args });
    }
}

function uri(file, scheme = 'file') {
    return { fsPath: file, scheme };
}

// What the extension requires as "vscode". What it shows and asks is kept; answers are given to the
// questions by their kind.
class Editor {
    constructor({ folders = [], settings = {}, answers = {} } = {}) {
        this.settings = settings;
        this.shown = [];
        this.executed = [];
        this.started = [];
        this.asked = {};
        this.providers = [];
        this.commands = {};
        this.scopes = {};
        const answer = (kind) => async (first, options) => {
            this.asked[kind] = { first: await first, options };
            return answers[kind] && answers[kind](this.asked[kind].first);
        };
        const show = async (text, ...buttons) => {
            this.shown.push(text);
            return answers.button && buttons.find((button) => button === answers.button);
        };
        this.window = { activeTextEditor: undefined, showErrorMessage: show,
            showInformationMessage: show, showQuickPick: answer('pick'),
            showInputBox: answer('input'), showOpenDialog: answer('open') };
        this.workspace = {
            workspaceFolders: folders.length
                ? folders.map((folder) => ({ uri: uri(folder) })) : undefined,
            getWorkspaceFolder: ({ fsPath }) => (this.workspace.workspaceFolders || []).find(
                (folder) => fsPath.startsWith(`${folder.uri.fsPath}/`)),
            getConfiguration: (section) => ({
                get: (name, missing) => this.settings[`${section}.${name}`] || missing,
                update: async (name, value, scope) => {
                    this.settings[`${section}.${name}`] = value;
                    this.scopes[`${section}.${name}`] = scope;
                } }) };
        this.debug = {
            registerDebugConfigurationProvider: (type, provider, kind) => {
                this.providers.push({ type, provider, kind });
            },
            registerDebugAdapterDescriptorFactory: (type, factory) => { this.factory = factory; },
            startDebugging: async (...all) => { this.started.push(all); } };
        const { commands } = this;
        this.vscode = { window: this.window, workspace: this.workspace, debug: this.debug,
            commands: {
                registerCommand: (name, run) => { commands[name] = run; },
                executeCommand: async (...words) => { this.executed.push(words); } },
            DebugAdapterExecutable, ConfigurationTarget: { Global: 1, Workspace: 2 },
            DebugConfigurationProviderTriggerKind: { Initial: 1, Dynamic: 2 } };
    }

    // Loads the extension from a folder and activates it.
    activate(folder = EXTENSION) {
        const load = Module._load;
        Module._load = (name, ...rest) => (name === 'vscode' ? this.vscode : load(name, ...rest));
        try {
            const { main } = JSON.parse(fs.readFileSync(path.join(folder, 'package.json'), 'utf8'));
            const real = fs.realpathSync(folder);
            for (const file of Object.keys(require.cache)) {
                if (file.startsWith(`${real}/`)) {
                    delete require.cache[file];
                }
            }
            require(path.join(folder, main)).activate({ extensionPath: folder, subscriptions: [] });
        } finally {
            Module._load = load;
        }
        return this;
    }

    look(file, languageId = 'python', scheme = 'file') {
        this.window.activeTextEditor = { document: { uri: uri(file, scheme), languageId } };
    }

    // What becomes of a configuration before a session begins with it; undefined if none does.
    async resolved(configuration, folder = (this.workspace.workspaceFolders || [])[0]) {
        const { provider } = this.providers.find(({ kind }) => kind === 1);
        const first = await provider.resolveDebugConfiguration(folder, configuration);
        return first && provider.resolveDebugConfigurationWithSubstitutedVariables(folder, first);
    }

    // Command and arguments of the adapter, in one list.
    async adapter(configuration = {}) {
        const [workspaceFolder] = this.workspace.workspaceFolders || [];
        const { command, args } = await this.factory.createDebugAdapterDescriptor(
            { workspaceFolder, configuration });
        return [command, ...args];
    }

    offered(kind = 1) {
        const { provider } = this.providers.find((one) => one.kind === kind);
        return provider.provideDebugConfigurations((this.workspace.workspaceFolders || [])[0]);
    }
}

module.exports = { Editor, uri, EXTENSION };
