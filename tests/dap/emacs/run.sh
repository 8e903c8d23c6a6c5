#!/usr/bin/env bash
# Debugs programs in Emacs, without a screen and with a home folder of its own.
# usage: run.sh HOST
set -euo pipefail

here=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)
export MORVIK_PYTHON=$1
HOME=$(mktemp -d)
export HOME
trap 'rm -rf "$HOME"' EXIT
export TMPDIR=$HOME
emacs --batch --load "$here/test-dap-sorrel.el" --funcall ert-run-tests-batch-and-exit
