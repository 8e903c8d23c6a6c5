# One function for each command of ./morvik, and the reading of their options.

command_help() {
    cat <<'EOF'
usage: ./morvik COMMAND [OPTIONS]

  setup [--python EXE]                    find or bring a host interpreter and build tools
  build [--python EXE] [--asan]           build; prints the folder that holds the module
  python [--python EXE] [--asan] -- ARGS  run the host with the module importable
  python --as-is --python EXE -- ARGS     the same where it is built for EXE, else with what is
                                          installed for it
  python --as-is --or-build --python EXE  the same, and builds for EXE where there is neither
  run [--python EXE] PROGRAM [ARGS]       debug PROGRAM in the terminal
  run ... [-O ...] -m MODULE | -c TEXT    what else the interpreter takes, with its options
  run --hook MODULE:NAME PROGRAM [ARGS]   the same, with a template language (docs/terminal.md)
  run --no-templates PROGRAM [ARGS]       the same, with the Python that templates are made into
  run --just-my-code PROGRAM [ARGS]       the same, and step through libraries without a stop
  run --post-mortem PROGRAM [ARGS]        the same, and look at what has ended it
  run --tty DEVICE PROGRAM [ARGS]         the same, with the prompt at another terminal
  run --no-color PROGRAM [ARGS]           the same, without colours
  run --listen [HOST:]PORT [--wait] ...   run PROGRAM for editors to connect to, or wait for one
  run --listen unix:PATH [--wait] ...     the same, at a socket that only its user can connect to
      --post-mortem                       wait for one when an exception has ended it
      --token-file FILE | --no-token      what they have to show instead of a new token
  run --connect [HOST:]PORT PROGRAM       run PROGRAM for an editor that waits there ("listen")
      --token-file FILE                   the token that it has, where that is not found
  attach [--python EXE] [--just-my-code] PID  debug a program that runs already
  connect [--python EXE] [HOST:]PORT      debug one that listens, in the terminal
  connect ... unix:PATH | PID             the same, at a socket, or in a process
      --token-file FILE                   what to show instead of the token that is found
  dap [--python EXE]                      be an editor's debug adapter (docs/dap.md)
  install [--python EXE] [--target DIR]   install for EXE, or where PYTHONPATH leads (docs/installing.md)
  uninstall [--python EXE] [--target DIR] take it away again
  wheel [--python EXE] [DIR]              make a wheel for EXE in DIR, by default dist/
  sdist [--python EXE] [DIR]              make a source distribution there
  vsix [--python EXE] [DIR]               make the extension for VS Code there
  demo [--python EXE]                     watch two short recorded sessions
  test [--python EXE]... [-- CTEST-ARGS]  run every test, on every host found
  test --asan [--python EXE]...           the same with sanitizers, on the default host
  test --long [--asan] [--python EXE]...  soak, fuzzing and others at whole length
  bench [--python EXE] [ARGS]             measure the core beside other trace functions
  help                                    this text

EXE is a CPython 2.6 or 2.7 with its development files; MORVIK_PYTHON names the default.
EOF
}

# The options that have a value, and what it is.
declare -A option_values=(
    [--python]='an interpreter' [--listen]='a port' [--connect]='a port'
    [--token-file]='a file' [--hook]=MODULE:NAME [--target]='a folder' [--tty]='a terminal')

# read_options [OPTION...] -- ARGS: reads the leading options of ARGS among those named; leaves
# hosts, asan, as_is, or_build, long, listen, connect, wait, just_my_code, post_mortem, tty, no_color,
# no_templates, hooks, token, target, and the others in rest.
# With the option "-", these begin at the first one with a single dash, or at "--".
read_options() {
    local allowed=' --python ' name value
    hosts=() asan='' as_is='' or_build='' long='' listen='' connect='' wait=''
    just_my_code='' post_mortem='' tty='' no_color='' no_templates='' hooks=() token=() target='' rest=()
    while [[ $1 != -- ]]; do
        allowed+="$1 "
        shift
    done
    shift
    while (($#)); do
        if [[ $allowed == *' - '* && $1 != --?* ]]; then
            break
        elif [[ $1 == -- ]]; then
            shift
            break
        fi
        [[ $1 == -* ]] || break
        name=${1%%=*} value=''
        [[ $allowed == *" $name "* ]] || usage_error "unknown option: $1"
        if [[ -n ${option_values[$name]:-} ]]; then
            if [[ $1 == *=* ]]; then
                value=${1#*=}
            elif (($# > 1)); then
                value=$2
                shift
            fi
            [[ -n $value ]] || usage_error "$name needs ${option_values[$name]}"
        elif [[ $1 == *=* ]]; then
            usage_error "unknown option: $1"
        fi
        case $name in
            --python) hosts+=("$value") ;;
            --asan | --as-is | --or-build | --wait | --long | --just-my-code | --post-mortem | \
                --no-color | --no-templates)
                name=${name#--}
                declare -g "${name//-/_}=1"
                ;;
            --listen) listen=$value ;;
            --connect) connect=$value ;;
            --tty) tty=$value ;;
            --no-token) token+=(--no-token) ;;
            --token-file) token+=(--token-file "$value") ;;
            --hook) hooks+=(--hook "$value") ;;
            --target) target=$value ;;
        esac
        shift
    done
    rest=("$@")
}

no_arguments() {
    ((${#rest[@]} == 0)) || usage_error "unexpected argument: ${rest[0]}"
}

# one_host: the named host or the default one. Called in a subshell, which alone would end
# when it fails: hence "|| exit" after each call.
one_host() {
    if ((${#hosts[@]} > 0)); then
        named_host "${hosts[-1]}"
    else
        default_host
    fi
}

# debug_program EXE ARGS...: becomes morvik-python, built, which debugs a program. Its environment is
# as it was.
debug_program() {
    local exe=$1 dir
    shift
    build "$exe" ''
    dir=$(build_dir "$exe" '')
    exec "$dir/bin/morvik-python" "$root/sorrel/start.py" "$dir/lib" debug "$@"
}

# in_host EXE ASAN ARGS...: becomes morvik-python, built, with the module and sorrel importable.
in_host() {
    local exe=$1 asan=$2 dir
    shift 2
    build "$exe" "$asan"
    dir=$(build_dir "$exe" "$asan")
    export PYTHONPATH=$dir/lib:$root${PYTHONPATH:+:$PYTHONPATH}
    exec "$dir/bin/morvik-python" "$@"
}

# as_it_is EXE ARGS...: the same where it has been built for EXE, else becomes EXE itself, for which
# Morvik is installed then. Builds for nobody for the first time, but with --or-build for an EXE that
# has neither.
as_it_is() {
    local exe
    exe=$(type -P "$1") || die "no such interpreter: $1"
    shift
    if is_host "$exe" && is_built "$exe"; then
        in_host "$exe" '' "$@"
    fi
    if "$exe" -c 'import imp; [imp.find_module(name) for name in "sorrel", "_sorrel"]' \
        2>/dev/null; then
        exec "$exe" "$@"
    fi
    [[ -n $or_build ]] ||
        die "Morvik is neither built for $exe (./morvik build --python $exe, or \"build\": true)" \
            "nor installed there"
    exe=$(named_host "$exe") || exit
    in_host "$exe" '' "$@"
}

command_setup() {
    local exe
    read_options -- "$@"
    no_arguments
    # The host first: it can be brought without being root.
    ((${#hosts[@]} > 0)) || debug_and_release_hosts
    exe=$(one_host) || exit
    need_test_tools
    want_client_tools
    want_programs
    want_pip
    say "host: $exe"
}

command_build() {
    local exe
    read_options --asan -- "$@"
    no_arguments
    exe=$(one_host) || exit
    build "$exe" "$asan"
    echo "$(build_dir "$exe" "$asan")/lib"
}

# expect_adapter ARGS...: where an adapter waits for what these words begin, it is told why not.
expect_adapter() {
    while (($# > 1)) && [[ $1 != -- ]]; do
        [[ $1 != --handshake || ! -f $2 ]] || refusal_file=${2%/*}/refused
        shift
    done
}

command_python() {
    local exe
    read_options --asan --as-is --or-build -- "$@"
    expect_adapter "${rest[@]}"
    [[ -z $or_build || -n $as_is ]] || usage_error "--or-build goes with --as-is"
    if [[ -n $as_is ]]; then
        ((${#hosts[@]} > 0)) || usage_error "--as-is goes with --python"
        as_it_is "${hosts[-1]}" "${rest[@]}"
    fi
    exe=$(one_host) || exit
    in_host "$exe" "$asan" "${rest[@]}"
}

command_run() {
    local exe words=()
    read_options --listen --connect --wait --just-my-code --post-mortem --tty --no-color --hook \
        --no-templates --token-file --no-token - \
        -- "$@"
    ((${#rest[@]} > 0)) || usage_error "run needs a program"
    [[ ${rest[0]} == -* || -e ${rest[0]} ]] || usage_error "no such program: ${rest[0]}"
    [[ -z $wait || -n $listen ]] || usage_error "--wait goes with --listen"
    [[ -z $just_my_code || -z $listen ]] || usage_error "--just-my-code does not go with --listen"
    [[ -z $no_templates || -z $listen ]] || usage_error "--no-templates does not go with --listen"
    [[ -z $tty || -z $listen ]] || usage_error "--tty and --listen do not go together"
    ((${#token[@]} == 0)) || [[ -n $listen || -n $connect ]] ||
        usage_error "${token[0]} goes with --listen"
    exe=$(one_host) || exit
    [[ -z $listen ]] || words=(--listen "$listen")
    [[ -z $connect ]] || words+=(--connect "$connect")
    words+=(${wait:+--wait} "${token[@]}")
    [[ -z $just_my_code ]] || words+=(--just-my-code)
    [[ -z $post_mortem ]] || words+=(--post-mortem)
    [[ -z $tty ]] || words+=(--tty "$tty")
    [[ -z $no_color ]] || words+=(--no-color)
    [[ -z $no_templates ]] || words+=(--no-templates)
    debug_program "$exe" "${words[@]}" "${hooks[@]}" "${rest[@]}"
}

# host_of_process PID: the interpreter that the process runs, where that can be a host.
host_of_process() {
    local exe
    exe=$(readlink "/proc/$1/exe") || exit
    case $exe in
        "$root"/build/*/bin/morvik-python)
            exe=$(sed -n 's/^MORVIK_PYTHON:FILEPATH=//p' "${exe%/bin/*}/CMakeCache.txt")
            ;;
    esac
    # What only has an interpreter in it is not to be started once more.
    if [[ ${exe##*/} == python* ]] && is_host "$exe"; then
        echo "$exe"
    fi
}

command_attach() {
    local exe=''
    read_options --just-my-code -- "$@"
    [[ ${#rest[@]} == 1 && ${rest[0]} =~ ^[0-9]{1,9}$ ]] || usage_error "attach needs a process id"
    [[ -e /proc/${rest[0]} ]] || die "there is no process ${rest[0]}"
    ((${#hosts[@]} > 0)) || exe=$(host_of_process "${rest[0]}") || true
    [[ -n $exe ]] || exe=$(one_host) || exit
    in_host "$exe" '' -m sorrel.main attach ${just_my_code:+--just-my-code} "${rest[@]}"
}

command_connect() {
    local exe
    read_options --token-file -- "$@"
    ((${#rest[@]} == 1)) || usage_error "connect needs a port, a socket or a process id"
    exe=$(one_host) || exit
    in_host "$exe" '' -m sorrel.main connect "${token[@]}" -- "${rest[0]}"
}

# python_of_adapter: what runs the adapter, which needs nothing that is built: the one named, else
# the one that programs are launched with by default, else any that is on the path.
python_of_adapter() {
    local name=${MORVIK_PYTHON:-} exe
    ((${#hosts[@]} == 0)) || name=${hosts[-1]}
    if [[ -n $name ]]; then
        exe=$(type -P "$name") || die "no such interpreter: $name"
        is_python_2 "$exe" || die "$name is neither Python 2.6 nor 2.7"
        echo "$exe"
        return
    fi
    exe=$(first_line "$(all_hosts)")
    for name in python2.7 python2.6 python2 python; do
        [[ -z $exe ]] || break
        exe=$(type -P "$name") && is_python_2 "$exe" || exe=''
    done
    [[ -n $exe ]] || die "no Python 2.6 or 2.7 for the adapter: name the one that your programs" \
        "run, with --python or MORVIK_PYTHON"
    echo "$exe"
}

command_dap() {
    local exe
    read_options -- "$@"
    no_arguments
    if ! exe=$(python_of_adapter 2>&1); then
        echo "$exe" >&2
        exe=${exe##*$'\n'}
        refuse_client "${exe#morvik: }"
        exit 1
    fi
    exe=${exe##*$'\n'}
    PYTHONPATH=$root${PYTHONPATH:+:$PYTHONPATH} exec "$exe" -m sorrel.main dap
}

command_demo() {
    local exe
    read_options -- "$@"
    no_arguments
    exe=$(one_host) || exit
    (in_host "$exe" '' -m sorrel.main demo ledger) || exit
    in_host "$exe" '' -m sorrel.main demo bills
}

# host_tool EXE SCRIPT ARGS...: runs a script in tools/, for what only the host knows.
host_tool() {
    local exe=$1 script=$2
    shift 2
    "$exe" -E -B "$root/tools/$script" "$@"
}

command_install() {
    local exe folder main=sorrel
    read_options --target -- "$@"
    no_arguments
    exe=$(one_host) || exit
    build "$exe" ''
    folder=$(host_tool "$exe" install.py install "$target" "$(build_dir "$exe" '')/lib") || exit
    # 2.6 runs no packages.
    [[ $(host_value "$exe" version) != 2.6 ]] || main=sorrel.__main__
    say "debug programs with:${target:+$(printf ' PYTHONPATH=%q' "$folder")} $exe -m $main PROGRAM"
    echo "$folder"
}

command_uninstall() {
    local exe
    read_options --target -- "$@"
    no_arguments
    exe=$(one_host) || exit
    host_tool "$exe" install.py uninstall "$target"
}

# output_folder: the one named after the options, or dist/.
output_folder() {
    ((${#rest[@]} <= 1)) || usage_error "unexpected argument: ${rest[1]}"
    readlink -m -- "${rest[0]:-"$root/dist"}"
}

command_wheel() {
    local exe folder
    read_options -- "$@"
    folder=$(output_folder) || exit
    exe=$(one_host) || exit
    build "$exe" ''
    host_tool "$exe" make_wheel.py "$(build_dir "$exe" '')/lib" "$folder"
}

command_sdist() {
    local exe folder name
    read_options -- "$@"
    folder=$(output_folder) || exit
    exe=$(one_host) || exit
    # Beside the checkout's own, a folder of the distribution's name comes and goes.
    cd "$root"
    name=$("$exe" -E -B setup.py --fullname) || exit
    "$exe" -E -B setup.py -q sdist --formats=gztar -d "$folder" >&2 || exit
    echo "$folder/$name.tar.gz"
}

command_vsix() {
    local exe folder
    read_options -- "$@"
    folder=$(output_folder) || exit
    exe=$(one_host) || exit
    host_tool "$exe" make_vsix.py "$folder"
}

# The hosts of a test run: those named, else the default one with --asan, else all.
test_hosts() {
    local name
    if ((${#hosts[@]} > 0)); then
        for name in "${hosts[@]}"; do
            named_host "$name" || return
        done
    elif [[ -n $asan ]]; then
        default_host
    else
        debug_and_release_hosts
        all_hosts
    fi
}

# add_editor_test EXE: what ctest is told of the tests in a real editor, on one host like those of
# the command. Beside others their processes would wait for each other.
add_editor_test() {
    cat <<EOF
add_test(editor "$root/tests/editor/run.sh" "$1" "$deps/editor")
set_tests_properties(editor PROPERTIES
    LABELS editor TIMEOUT 1200 SKIP_RETURN_CODE 77 PROCESSORS 2)
EOF
}

command_test() {
    local exe list dir name tests=$root/build/tests
    read_options --asan --long -- "$@"
    [[ -z $long ]] || rest=(-C long -L long "${rest[@]}")
    list=$(test_hosts) || exit
    need_test_tools
    if [[ -z $asan ]]; then
        want_client_tools
        want_programs
        want_pip
    fi
    mkdir -p "$tests"
    : >"$tests/CTestTestfile.cmake"
    # The command itself is tested once, on a host whose plain build is there.
    if [[ -z $asan ]]; then
        for name in command source_distribution; do
            echo "add_test($name \"$root/tests/command/test_$name.sh\" \"${list%%$'\n'*}\")"
        done >"$tests/CTestTestfile.cmake"
        add_editor_test "${list%%$'\n'*}" >>"$tests/CTestTestfile.cmake"
    fi
    while read -r exe; do
        build "$exe" "$asan" tests
        dir=$(build_dir "$exe" "$asan")
        echo "subdirs(\"$dir\")" >>"$tests/CTestTestfile.cmake"
    done <<<"$list"
    # One run over all builds, so that one summary ends it.
    ctest --test-dir "$tests" --output-on-failure -j"$(nproc)" "${rest[@]}"
}

command_bench() {
    local exe name=${MORVIK_PYTHON:-}
    case ${1:-} in
        --python)
            (($# > 1)) || usage_error "--python needs an interpreter"
            name=$2
            shift 2
            ;;
        --python=*)
            name=${1#*=}
            shift
            ;;
    esac
    if [[ -n $name ]]; then
        exe=$(named_host "$name") || exit
    else
        exe=$(release_host) || exit
    fi
    in_host "$exe" '' "$root/bench/run.py" "$@"
}

main() {
    local command=${1:-help}
    (($# == 0)) || shift
    case $command in
        setup | build | python | run | attach | connect | dap | demo | test | bench | \
            install | uninstall | wheel | sdist | vsix) "command_$command" "$@" ;;
        help | --help | -h) command_help ;;
        *) usage_error "unknown command: $command" ;;
    esac
}
