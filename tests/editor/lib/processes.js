'use strict';
// The processes that a test has started, and those that they have, wherever they have got to: they
// are known by a variable in their environment.

const fs = require('node:fs');
const { eventually } = require('./waiting');

const MARK = 'MORVIK_TEST_EDITOR_RUN';

function marked(value) {
    const wanted = `${MARK}=${value}`;
    return fs.readdirSync('/proc').filter((name) => /^\d+$/.test(name)).map(Number).filter((pid) => {
        try {
            return fs.readFileSync(`/proc/${pid}/environ`, 'latin1').split('\0').includes(wanted);
        } catch {
            return false;  // It has ended, or is another user's.
        }
    });
}

// Ends all that have the mark; resolves when none is left.
async function endMarked(value) {
    await eventually(() => {
        const left = marked(value);
        for (const pid of left) {
            try {
                process.kill(pid, 'SIGKILL');
            } catch {
                // It has ended meanwhile.
            }
        }
        return !left.length;
    }, () => `processes do not end: ${marked(value)}`);
}

module.exports = { MARK, endMarked };
