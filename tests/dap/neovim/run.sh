#!/usr/bin/env bash
# Loads the configuration for Neovim there, without a screen and with a home folder of its own.
# usage: run.sh HOST
set -euo pipefail

here=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)
export MORVIK_PYTHON=$1
HOME=$(mktemp -d)
export HOME
trap 'rm -rf "$HOME"' EXIT
nvim --headless -u NONE +"luafile $here/test.lua" +cquit
