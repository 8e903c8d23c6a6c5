#!/usr/bin/env bash
# What an editor starts as the debug adapter: the checkout that this folder is part of, even if the
# editor knows the folder by a link; for a copy of the folder, the morvik on the path.
set -euo pipefail

here=$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")
morvik=$here/../../morvik
[[ -x $morvik ]] || morvik=$(type -P morvik) || {
    echo "sorrel: no morvik beside $here nor on the path: link this folder, or put a link to" \
        "morvik on the path" >&2
    exit 1
}
exec "$morvik" dap
