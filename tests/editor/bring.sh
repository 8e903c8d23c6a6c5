#!/usr/bin/env bash
# Brings VS Code as a browser shows it, and what drives the browser: by npm, into a folder. Ends with
# status 77 and the reason where that cannot be had here. What has been brought is kept, also where
# it was interrupted.
# usage: bring.sh FOLDER
set -euo pipefail

here=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)
folder=$1

cannot() {
    echo "tests/editor: $*" >&2
    exit 77
}

# What the editor has in C++.
native_modules=(argon2 node-pty @vscode/spdlog native-watchdog @parcel/watcher)

# build_module NAME NODE_FOLDER: as its own install script would, with the headers of the machine's
# own node. Silent where it has been built.
build_module() {
    local module=$folder/node_modules/$1 options=()
    [[ ! -e $module/build/.complete ]] || return 0
    # It is looked for where prebuilt ones would be.
    [[ $1 != argon2 ]] || options=(
        --module_name=argon2 "--module_path=$module/lib/binding/napi-v3" --napi_build_version=3)
    echo "tests/editor: building $1" >&2
    if ! (cd "$module" && node "$folder/node_modules/node-gyp/bin/node-gyp.js" rebuild \
        --nodedir="$2" "${options[@]}" >"$folder/build.log" 2>&1); then
        tail -n 30 "$folder/build.log" >&2
        echo "tests/editor: $1 could not be built" >&2
        exit 1
    fi
    touch "$module/build/.complete"
}

for program in chromium node npm python3 make c++; do
    type -P "$program" >/dev/null || cannot "there is no $program here"
done
[[ $(node --version) == v20.* ]] || cannot "the editor runs on node 20, not on $(node --version)"
node_folder=$(node --print 'path.dirname(path.dirname(process.execPath))')
[[ -e $node_folder/include/node/node.h ]] || cannot "the headers of node are not installed"

mkdir -p "$folder"
folder=$(cd -- "$folder" && pwd)
exec {lock}>"$folder/.lock"
flock "$lock"
# Built for this node alone.
version="$(node --version) $(cat "$here/package-lock.json" "${BASH_SOURCE[0]}" | cksum)"
[[ $(cat "$folder/.installed" 2>/dev/null) != "$version" ]] || exit 0

if [[ $(cat "$folder/.fetched" 2>/dev/null) != "$version" ]]; then
    echo "tests/editor: fetching the editor's packages" >&2
    cp "$here/package.json" "$here/package-lock.json" "$folder"
    # Nothing is asked of a home folder, which need not be writable.
    (cd "$folder" && npm ci --ignore-scripts --no-audit --no-fund --no-update-notifier \
        --loglevel=error --cache="$folder/cache" >&2) || cannot "its packages cannot be had"
    echo "$version" >"$folder/.fetched"
    rm -rf "$folder/cache"
fi
for module in "${native_modules[@]}"; do
    build_module "$module" "$node_folder"
done
# The editor looks for its packages in its own folder; they stand beside it, locked with the rest.
vscode=$folder/node_modules/code-server/lib/vscode
ln -sfn ../../.. "$vscode/node_modules"
ln -sfn node_modules "$vscode/node_modules.asar"
echo "$version" >"$folder/.installed"
