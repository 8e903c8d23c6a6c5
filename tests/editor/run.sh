#!/usr/bin/env bash
# Runs tests of the extension in a real editor, in a browser without a screen. Status 77: nothing was
# run, since the editor cannot be had here.
# usage: run.sh HOST FOLDER [TEST.js...]: FOLDER is where the editor is kept
set -euo pipefail

here=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)
root=$(cd -- "$here/../.." && pwd)
export MORVIK_PYTHON=$1
folder=$2
shift 2

"$here/bring.sh" "$folder"
folder=$(cd -- "$folder" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# Programs are launched where it has been built for their interpreter.
"$root/morvik" build >/dev/null
export NODE_PATH=$folder/node_modules
export MORVIK_TEST_EDITOR=$folder/node_modules/code-server/out/node/entry.js
export MORVIK_TEST_EXTENSIONS=$scratch/extensions
HOME=$scratch node "$MORVIK_TEST_EDITOR" --extensions-dir "$MORVIK_TEST_EXTENSIONS" \
    --install-extension "$("$root/morvik" vsix "$scratch")" >"$scratch/log" 2>&1 ||
    { cat "$scratch/log" >&2; exit 1; }

(($#)) || set -- "$here"/test_*.js
status=0
for file; do
    node --test "$file" || status=1
done
exit "$status"
