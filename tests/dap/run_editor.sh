#!/usr/bin/env bash
# Runs an editor with a home folder of its own.
# usage: run_editor.sh HOST EDITOR ARGS...
set -euo pipefail

export MORVIK_PYTHON=$1
shift
HOME=$(mktemp -d)
export HOME TMPDIR=$HOME
trap 'rm -rf "$HOME"' EXIT
"$@"
