# Finding the interpreters the core is built for. A host is always given by the path of its
# executable; tools/describe_host.py says the rest.

deps=$root/.deps
deps_hosts=("$deps/root/usr/bin/python2.7-dbg" "$deps/root/usr/bin/python2.7")

# describe_host EXE: the answers of describe_host.py; fails, with its complaint on standard
# error, when EXE cannot be a host. Remembered for binaries, which do not change unseen
# (a script named python2.7 may lead to another interpreter tomorrow).
describe_host() {
    local exe=$1 magic='' memory
    local describe=$root/tools/describe_host.py
    [[ -f $exe && -x $exe ]] || { echo "$exe: no such program" >&2; return 1; }
    LC_ALL=C read -r -N 4 magic <"$exe" || true
    if [[ $magic != $'\x7fELF' ]]; then
        "$exe" -E "$describe"
        return
    fi
    memory=$root/build/hosts/${exe//\//%}
    if [[ ! -s $memory || $exe -nt $memory || $describe -nt $memory ]]; then
        mkdir -p "$root/build/hosts"
        if ! "$exe" -E "$describe" >"$memory.$$"; then
            rm -f "$memory.$$"
            return 1
        fi
        mv "$memory.$$" "$memory"
    fi
    cat "$memory"
}

is_host() {
    describe_host "$1" >/dev/null 2>&1
}

# is_python_2 EXE: one that can run what needs nothing built; it may have no development files.
is_python_2() {
    "$1" -E -c 'import sys; sys.exit(sys.version_info[:2] not in ((2, 6), (2, 7)))' 2>/dev/null
}

# host_value EXE KEY: one answer of describe_host.py.
host_value() {
    describe_host "$1" | sed -n "s/^$2=//p"
}

# host_key EXE: the name of its build folder, such as 2.7-debug-1f3a90.
host_key() {
    local hash
    hash=$(host_value "$1" executable | cksum)
    printf '%s-%s-%06x\n' "$(host_value "$1" version)" "$(host_value "$1" flavour)" \
        $((${hash%% *} & 0xffffff))
}

# The usable interpreters on the path, the best first.
hosts_on_path() {
    local name exe
    for name in python2.6-dbg python2.6 python2.7-dbg python2.7; do
        while read -r exe; do
            if is_host "$exe"; then
                echo "$exe"
                break
            fi
        done < <(type -aP "$name")
    done
}

# Every usable interpreter, on the path and brought by setup, each once.
all_hosts() {
    local exe real seen=:
    { hosts_on_path; printf '%s\n' "${deps_hosts[@]}"; } | while read -r exe; do
        real=$(readlink -f "$exe")
        if [[ $seen != *":$real:"* ]] && is_host "$exe"; then
            seen+=$real:
            echo "$exe"
        fi
    done
}

# named_host NAME: the path of an interpreter a person named, checked.
named_host() {
    local exe why
    exe=$(type -P "$1") || die "no such interpreter: $1"
    exe=$(cd "$(dirname "$exe")" && pwd)/${exe##*/}
    if ! why=$(describe_host "$exe" 2>&1 >/dev/null); then
        [[ ! $why =~ :\ ((is|has)\ [^$'\n']*)$ ]] || die "$1 ${BASH_REMATCH[1]}"
        # What is no Python complains in its own way.
        echo "$why" >&2
        die "$1 cannot be a host"
    fi
    echo "$exe"
}

# first_line TEXT. Not by a pipe that is closed early: whoever started us may ignore the signal for
# that, and would be told of the error.
first_line() {
    echo "${1%%$'\n'*}"
}

# default_host: the one a command uses when none is named; brings one when there is none.
default_host() {
    local exe
    if [[ -n ${MORVIK_PYTHON:-} ]]; then
        named_host "$MORVIK_PYTHON"
        return
    fi
    exe=$(first_line "$(all_hosts)")
    if [[ -z $exe ]]; then
        bring_hosts
        exe=${deps_hosts[0]}
    fi
    echo "$exe"
}

# hosts_of FLAVOUR: the usable ones that are debug or release builds.
hosts_of() {
    local exe
    all_hosts | while read -r exe; do
        [[ $(host_value "$exe" flavour) != "$1" ]] || echo "$exe"
    done
}

# debug_and_release_hosts: sees to it that both kinds are there, and is content with one kind
# where the other cannot be brought.
debug_and_release_hosts() {
    if [[ -z $(hosts_of debug) || -z $(hosts_of release) ]]; then
        (bring_hosts) || [[ -n $(all_hosts) ]] || exit
        [[ -n $(hosts_of debug) && -n $(hosts_of release) ]] || say "going on without it"
    fi
}

# release_host: where figures are taken.
release_host() {
    local exe
    exe=$(first_line "$(hosts_of release)")
    if [[ -z $exe ]]; then
        bring_hosts
        exe=${deps_hosts[1]}
    fi
    echo "$exe"
}
