# One function for each command of ./morvik, and the reading of their options.

command_help() {
    cat <<'EOF'
usage: ./morvik COMMAND [OPTIONS]

  setup [--python EXE]                    find or bring a host interpreter and build tools
  build [--python EXE] [--asan]           build; prints the folder that holds the module
  python [--python EXE] [--asan] -- ARGS  run the host with the module importable
  run [--python EXE] PROGRAM [ARGS]       debug PROGRAM in the terminal
  run --hook MODULE:NAME PROGRAM [ARGS]   the same, with a template language (docs/terminal.md)
  run --post-mortem PROGRAM [ARGS]        the same, and look at what has ended it
  run --listen [HOST:]PORT [--wait] ...   run PROGRAM for editors to connect to, or wait for one
  run --listen unix:PATH [--wait] ...     the same, at a socket that only its user can connect to
      --post-mortem                       wait for one when an exception has ended it
      --token-file FILE | --no-token      what they have to show instead of a new token
  dap [--python EXE]                      be an editor's debug adapter (docs/dap.md)
  demo [--python EXE]                     watch two short recorded sessions
  test [--python EXE]... [-- CTEST-ARGS]  run every test, on every host found
  test --asan [--python EXE]...           the same with sanitizers, on the default host
  test --long [--asan] [--python EXE]...  soak, fuzzing and others at whole length
  bench [--python EXE] [ARGS]             measure the core beside other trace functions
  help                                    this text

EXE is a CPython 2.6 or 2.7 with its development files; MORVIK_PYTHON names the default.
EOF
}

# read_options [OPTION...] -- ARGS: reads the leading options of ARGS among those named;
# leaves hosts, asan, long, listen, wait, post_mortem, hooks, token, and the others in rest.
read_options() {
    local allowed=' ' name
    hosts=() asan='' long='' listen='' wait='' post_mortem='' hooks=() token=() rest=()
    while [[ $1 != -- ]]; do
        allowed+="$1 "
        shift
    done
    shift
    while (($#)); do
        case $1 in
            --python | --python=*)
                if [[ $1 == *=* ]]; then
                    hosts+=("${1#*=}")
                else
                    (($# > 1)) || usage_error "--python needs an interpreter"
                    hosts+=("$2")
                    shift
                fi
                ;;
            --asan | --wait | --long | --post-mortem)
                [[ $allowed == *" $1 "* ]] || usage_error "unknown option: $1"
                name=${1#--}
                declare -g "${name//-/_}=1"
                ;;
            --listen | --listen=*)
                [[ $allowed == *' --listen '* ]] || usage_error "unknown option: $1"
                if [[ $1 == *=* ]]; then
                    listen=${1#*=}
                else
                    (($# > 1)) || usage_error "--listen needs a port"
                    listen=$2
                    shift
                fi
                [[ -n $listen ]] || usage_error "--listen needs a port"
                ;;
            --no-token)
                [[ $allowed == *' --no-token '* ]] || usage_error "unknown option: $1"
                token+=(--no-token)
                ;;
            --token-file | --token-file=*)
                [[ $allowed == *' --token-file '* ]] || usage_error "unknown option: $1"
                if [[ $1 == *=* ]]; then
                    token+=(--token-file "${1#*=}")
                else
                    (($# > 1)) || usage_error "--token-file needs a file"
                    token+=(--token-file "$2")
                    shift
                fi
                ;;
            --hook | --hook=*)
                [[ $allowed == *' --hook '* ]] || usage_error "unknown option: $1"
                if [[ $1 == *=* ]]; then
                    hooks+=(--hook "${1#*=}")
                else
                    (($# > 1)) || usage_error "--hook needs MODULE:NAME"
                    hooks+=(--hook "$2")
                    shift
                fi
                ;;
            --)
                shift
                rest=("$@")
                return
                ;;
            -*) usage_error "unknown option: $1" ;;
            *)
                rest=("$@")
                return
                ;;
        esac
        shift
    done
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

# in_host EXE ASAN ARGS...: becomes morvik-python, built, with the module and sorrel importable.
in_host() {
    local exe=$1 asan=$2 dir
    shift 2
    build "$exe" "$asan"
    dir=$(build_dir "$exe" "$asan")
    export PYTHONPATH=$dir/lib:$root${PYTHONPATH:+:$PYTHONPATH}
    exec "$dir/bin/morvik-python" "$@"
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

command_python() {
    local exe
    read_options --asan -- "$@"
    exe=$(one_host) || exit
    in_host "$exe" "$asan" "${rest[@]}"
}

command_run() {
    local exe front_end=(terminal)
    read_options --listen --wait --post-mortem --hook --token-file --no-token -- "$@"
    ((${#rest[@]} > 0)) || usage_error "run needs a program"
    [[ -f ${rest[0]} ]] || usage_error "no such program: ${rest[0]}"
    [[ -z $wait || -n $listen ]] || usage_error "--wait goes with --listen"
    ((${#token[@]} == 0)) || [[ -n $listen ]] || usage_error "${token[0]} goes with --listen"
    [[ -z $listen ]] || front_end=(serve --listen "$listen" ${wait:+--wait} "${token[@]}")
    exe=$(one_host) || exit
    [[ -z $post_mortem ]] || front_end+=(--post-mortem)
    in_host "$exe" '' -m sorrel.main "${front_end[@]}" "${hooks[@]}" -- "${rest[@]}"
}

command_dap() {
    local exe
    read_options -- "$@"
    no_arguments
    exe=$(one_host) || exit
    in_host "$exe" '' -m sorrel.main dap
}

command_demo() {
    local exe
    read_options -- "$@"
    no_arguments
    exe=$(one_host) || exit
    (in_host "$exe" '' -m sorrel.main demo ledger) || exit
    in_host "$exe" '' -m sorrel.main demo bills
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

command_test() {
    local exe list dir tests=$root/build/tests
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
    [[ -n $asan ]] || echo "add_test(command_line \"$root/tests/command/test_command.sh\"" \
        "\"${list%%$'\n'*}\")" >"$tests/CTestTestfile.cmake"
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
        setup | build | python | run | dap | demo | test | bench) "command_$command" "$@" ;;
        help | --help | -h) command_help ;;
        *) usage_error "unknown command: $command" ;;
    esac
}
