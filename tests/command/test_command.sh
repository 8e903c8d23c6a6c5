#!/usr/bin/env bash
# What ./morvik answers: usage errors, and a program's own output and exit status.
# usage: test_command.sh HOST, a host that is built already
set -uo pipefail

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd)
host=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failures=0

# run STATUS ARGS...: calls ./morvik, whose exit status must be STATUS; leaves out and err.
run() {
    local expected=$1 status
    shift
    "$root/morvik" "$@" >"$scratch/out" 2>"$scratch/err"
    status=$?
    out=$(<"$scratch/out")
    # A debug interpreter ends by telling its reference count.
    err=$(sed '/^\[[0-9]* refs\]$/d' "$scratch/err")
    called="morvik $*"
    check "exit status $status, not $expected" "$status" "$expected"
}

# check WHAT ACTUAL EXPECTED
check() {
    if [[ $2 != "$3" ]]; then
        printf '%s: %s\n--- expected\n%s\n--- was\n%s\n' "$called" "$1" "$3" "$2"
        failures=$((failures + 1))
    fi
}

# refused MESSAGE ARGS...: a usage error, told in one line.
refused() {
    local message="morvik: $1 (./morvik help lists the commands)"
    shift
    run 2 "$@"
    check "standard error" "$err" "$message"
    check "standard output" "$out" ""
}

refused "unknown command: bild" bild
refused "unknown option: --fast" build --fast
refused "unknown option: --asan" setup --asan
refused "unknown option: -x" python -x
refused "unknown option: --x" run --x
refused "unknown option: --x" demo --x
refused "unknown option: --x" test --x
refused "--python needs an interpreter" build --python
refused "--or-build goes with --as-is" python --or-build -- -c pass
refused "--python needs an interpreter" bench --python
refused "--hook needs MODULE:NAME" run --hook
refused "--tty needs a terminal" run --tty
refused "unknown option: --no-color=1" run --no-color=1 "$0"
refused "--tty and --listen do not go together" run --tty /dev/tty --listen 0 "$0"
refused "unknown option: --hook" demo --hook a:b
refused "--token-file needs a file" run --listen 0 --token-file
refused "--connect needs a port" run --connect
refused "--no-token goes with --listen" run --no-token "$0"
refused "--token-file goes with --listen" run --token-file=x "$0"
refused "--just-my-code does not go with --listen" run --just-my-code --listen 0 "$0"
refused "--no-templates does not go with --listen" run --no-templates --listen 0 "$0"
refused "unknown option: --post-mortem" demo --post-mortem
refused "unknown option: --no-token" connect --no-token
refused "connect needs a port, a socket or a process id" connect
refused "connect needs a port, a socket or a process id" connect 5678 extra
refused "unknown option: --no-token" dap --no-token
refused "unknown option: --token-file" dap --token-file x
refused "unexpected argument: extra" build extra
refused "unexpected argument: extra" demo extra
refused "unknown option: --target" build --target x
refused "unknown option: --asan" install --asan
refused "--target needs a folder" install --target
refused "--target needs a folder" uninstall --target=
refused "unexpected argument: extra" install extra
refused "unexpected argument: extra" uninstall extra
refused "unexpected argument: extra" wheel "$scratch" extra
refused "unexpected argument: extra" sdist "$scratch" extra
refused "unexpected argument: extra" vsix "$scratch" extra
refused "run needs a program" run
refused "no such program: $scratch/none.py" run "$scratch/none.py"

run 0 help
check "the first line of help" "${out%%$'\n'*}" "usage: ./morvik COMMAND [OPTIONS]"
check "standard error" "$err" ""

run 1 build --python "$scratch/python2.6"
check "standard error" "$err" "morvik: no such interpreter: $scratch/python2.6"

run 0 build --python "$host"
check "standard error of a build with nothing to do" "$err" ""
folder=${out##*$'\n'}
ln -s "$host" "$scratch/other name"
mkdir "$scratch/folder"
for name in "$scratch/other name" "$scratch/folder/../other name"; do
    run 0 build --python "$name"
    check "standard error of a build by another name" "$err" ""
    check "the folder of a build by another name" "$out" "$folder"
done
called="morvik build --python $host"
check "modules in $folder" "$(find "$folder" -name 'tmorvik26_vs2012_x64*.so' | wc -l)" 1

run 7 python --python "$host" -- -c \
    'import sys; sys.stdout.write(sys.stdin.read()); sys.stderr.write("e\n"); sys.exit(7)' \
    <<<"a line"
check "standard output of the program" "$out" "a line"
check "standard error of the program" "$err" "e"

run 0 python --python "$host" -- -c 'import tmorvik26_vs2012_x64 as m; print(m.__name__)' x
check "import of the module" "$out" tmorvik26_vs2012_x64

# As a program that ignores the signal of a closed pipe would call it.
err=$(trap '' PIPE; "$root/morvik" python -- -c 'pass' 2>&1 >/dev/null)
check "standard error where SIGPIPE is ignored" "$(sed '/^\[[0-9]* refs\]$/d' <<<"$err")" ""

bills=$root/examples/template_language/bills.py
run 1 run --python "$host" --hook weft.debugging:Hook "$bills" <<<'break templates/bill.weft:9
continue'
check "the stop in a template" "$(grep -A 1 '> .*bill.weft(9)' <<<"$out")" \
    "(sorrel) > $root/examples/template_language/templates/bill.weft(9)render()
-> {% include item %}"
printf '{}["x"]\n' >"$scratch/dying.py"
run 1 run --python "$host" --post-mortem "$scratch/dying.py" <<<$'catch never\ncontinue\nquit'
check "the stop at the end" "$(sed -n '/^--Post/,/^>/p' <<<"$out")" \
    "--Post-mortem: the program has ended--
KeyError: 'x'
> $scratch/dying.py(1)<module>()"
run 0 run --python "$host" --just-my-code "$scratch/dying.py" <<<$'skip list\nquit'
check "an option of the terminal" "$out" \
    "> $scratch/dying.py(1)<module>()
-> {}[\"x\"]
(sorrel) Code of libraries is passed by (--just-my-code).
(sorrel) "
mkdir "$scratch/package"
echo 'import sys; print sys.flags.optimize, sys.argv[1:]; sys.exit(300)' >"$scratch/package/__main__.py"
run 44 run --python "$host" -O -Wignore "$scratch/package" --post-mortem <<<continue
check "a folder and options of the interpreter" "${out##*'(sorrel) '}" \
    $'1 [\'--post-mortem\']\nThe program ended with exit status 44.'
run 0 run --python "$host" -m timeit -n1 -r1 <<<continue
check "a module" "$(grep -c '1 loops, best of 1' <<<"$out")" 1
run 0 run --python "$host" -c 'print __name__' <<<continue
check "a text" "${out##*'(sorrel) '}" $'__main__\nThe program ended with exit status 0.'
run 2 run --python "$host" -Z program.py
check "standard error" "$err" "sorrel: no such option: -Z"
run 2 run --python "$host" --listen 0 --hook=weft.debugging:Hoop "$bills"
missing="AttributeError: 'module' object has no attribute 'Hoop'"
check "standard error" "${err#*$'\n'}" "sorrel: can't load hook 'weft.debugging:Hoop': $missing"

# Installed below a name with a blank in it, from another folder than the checkout.
site="$scratch/the site"
cd "$scratch" || exit
run 0 install --python "$host" --target "the site"
check "the folder" "$out" "$site"
echo 'print 6 * 7' >"$scratch/program.py"
command=${err#*debug programs with: }
called=$command
out=$(eval "${command/%PROGRAM/program.py}" <<<continue 2>"$scratch/err")
check "what the program and the debugger say" "${out##*'(sorrel) '}" \
    $'42\nThe program ended with exit status 0.'
run 0 uninstall --python "$host" --target "the site"
check "the folder" "$out" "$site"
check "what is left" "$(find "$site" -mindepth 1)" ""
run 1 uninstall --python "$host" --target "the site"
check "standard error" "$err" "morvik: could not uninstall: Morvik is not installed in $site"
run 0 wheel --python "$host" wheels
check "the wheel" "$(ls "$scratch/wheels")" "${out##*/}"
run 0 vsix --python "$host" "for editors"
check "the extension" "$out" "$scratch/for editors/sorrel-0.1.0.vsix"
check "the only file" "$(ls "$scratch/for editors")" "${out##*/}"
cd "$root" || exit

run 0 demo --python "$host"
check "standard error of the demo" "$(sed '/^Traceback/,/^AttributeError/d' <<<"$err")" ""
check "sessions of the demo" "$(grep '^The program ended' <<<"$out")" \
    $'The program ended with exit status 0.\nThe program ended with an uncaught AttributeError.'

exit $((failures > 0))
