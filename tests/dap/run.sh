#!/usr/bin/env bash
# Runs tests of the adapter with a published client of the protocol.
# usage: run.sh HOST FOLDER [TEST.js...]: FOLDER is where the client's packages are kept
set -euo pipefail

here=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)
export MORVIK_PYTHON=$1
folder=$2
shift 2

# The tests of several hosts may begin at once.
mkdir -p "$folder"
exec {lock}>"$folder/.lock"
flock "$lock"
if ! cmp -s "$here/package-lock.json" "$folder/.installed"; then
    cp "$here/package.json" "$here/package-lock.json" "$folder"
    (cd "$folder" && npm ci --no-audit --no-fund --loglevel=error >&2)
    cp "$here/package-lock.json" "$folder/.installed"
fi
exec {lock}>&-

(($#)) || set -- "$here"/test_*.js
export NODE_PATH=$folder/node_modules
status=0
for file; do
    node --test "$file" || status=1
done
exit "$status"
