#!/usr/bin/env bash
# What an editor starts as the debug adapter: that of the checkout that this folder is part of, even
# if the editor knows the folder by a link; for a copy of the folder, that of the morvik on the path,
# or of an interpreter that Morvik is installed for.
set -euo pipefail

here=$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")
morvik=$here/../../morvik
[[ -x $morvik ]] || morvik=$(type -P morvik) || morvik=''
[[ -z $morvik ]] || exec "$morvik" dap
for python in ${MORVIK_PYTHON:+"$MORVIK_PYTHON"} python2.7 python2.6 python2 python; do
    if "$python" -c 'import imp; imp.find_module("sorrel")' 2>/dev/null; then
        exec "$python" -m sorrel.main dap
    fi
done
echo "sorrel: no morvik beside $here nor on the path: link this folder, put a link to morvik on" \
    "the path, or install Morvik for the python2.7 on the path or the one that MORVIK_PYTHON names" >&2
exit 1
