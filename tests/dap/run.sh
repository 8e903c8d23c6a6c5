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
    # Nothing is asked of a home folder, which need not be writable.
    (cd "$folder" && npm ci --ignore-scripts --no-audit --no-fund --no-update-notifier \
        --loglevel=error --cache="$folder/cache" >&2)
    rm -rf "$folder/cache"
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
