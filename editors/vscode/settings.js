'use strict';
// What the user has set.

const os = require('os');
const path = require('path');
const vscode = require('vscode');

// A setting that is a path, or the name of a program; '' for none. The editor replaces no variables
// in settings.
function pathSetting(name, folder) {
    const value = vscode.workspace.getConfiguration('sorrel', folder).get(name, '').trim();
    const home = value.replace(/^~(?=\/|$)/, os.homedir());
    if (!folder || !home.includes('/')) {
        return home;
    }
    return path.resolve(folder.uri.fsPath, home.replace('${workspaceFolder}', folder.uri.fsPath));
}

// In the window: of the folder of the file that is looked at, else the first one.
function currentFolder() {
    const editor = vscode.window.activeTextEditor;
    return (editor && vscode.workspace.getWorkspaceFolder(editor.document.uri))
        || (vscode.workspace.workspaceFolders || [])[0];
}

// The paths of all folders in the window.
function folders() {
    return (vscode.workspace.workspaceFolders || []).map((folder) => folder.uri.fsPath);
}

module.exports = { pathSetting, currentFolder, folders };
