'use strict';
// The editor's server, with a home folder of its own.

const { spawn } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');
const { eventually } = require('./waiting');

const ENTRY = process.env.MORVIK_TEST_EDITOR;
const EXTENSIONS = process.env.MORVIK_TEST_EXTENSIONS;

// Nothing on the page but what a test looks at.
const SETTINGS = {
    'breadcrumbs.enabled': false,
    'debug.allowBreakpointsEverywhere': true,
    'debug.toolBarLocation': 'docked',
    'editor.minimap.enabled': false,
    'editor.stickyScroll.enabled': false,
    'extensions.ignoreRecommendations': true,
    'git.enabled': false,
    'search.followSymlinks': false,
    'window.commandCenter': false,
    'workbench.colorTheme': 'Default Light Modern',
    'workbench.layoutControl.enabled': false,
    'workbench.startupEditor': 'none',
    'workbench.tips.enabled': false,
};

class Server {
    // environment: of the server, with HOME.
    constructor(environment) {
        const user = path.join(environment.HOME, 'data', 'User');
        fs.mkdirSync(user, { recursive: true });
        fs.writeFileSync(path.join(user, 'settings.json'), JSON.stringify(SETTINGS));
        this.said = '';
        this.process = spawn(process.execPath, [ENTRY,
            '--auth', 'none', '--bind-addr', '127.0.0.1:0',
            '--user-data-dir', path.dirname(user), '--extensions-dir', EXTENSIONS,
            '--disable-telemetry', '--disable-update-check', '--disable-workspace-trust',
            '--disable-getting-started-override',
        ], { env: environment, stdio: ['ignore', 'pipe', 'pipe'] });
        for (const stream of [this.process.stdout, this.process.stderr]) {
            stream.on('data', (data) => { this.said += data; });
        }
    }

    // The address of the page for a folder.
    async page(folder) {
        const [, address] = await eventually(
            () => /listening on (http:\S+)/.exec(this.said),
            () => `the editor does not start: ${this.said}`);
        return `${address}?folder=${encodeURIComponent(folder)}`;
    }
}

module.exports = { Server };
