# Building for one host: build/<host key>[-asan].

# build_dir EXE ASAN: where it is built. ASAN is 1 or empty.
build_dir() {
    echo "$root/build/$(host_key "$1")${2:+-asan}"
}

# is_built EXE: whether it has been, for one that can be a host; it may be out of date.
is_built() {
    [[ -x $(build_dir "$1" '')/bin/morvik-python ]]
}

# configure EXE ASAN DIR
configure() {
    local preset=${2:+asan}
    (cd "$root" && MORVIK_PYTHON=$1 cmake --preset "${preset:-default}" -B "$3" \
        --log-level=WARNING >/dev/null) ||
        { rm -f "$3/build.ninja"; die "could not configure for $1"; }
}

# build EXE ASAN [TESTS]: brings the build up to date, silent where it is; with TESTS also
# the list of tests. Builds of one folder wait for each other.
build() {
    local exe=$1 asan=$2 tests=${3:-} dir lock
    need_build_tools
    dir=$(build_dir "$exe" "$asan")
    mkdir -p "$dir"
    exec {lock}>"$dir/.lock"
    flock "$lock"
    if [[ ! -e $dir/build.ninja ]]; then
        say "configuring ${dir#"$root/"}"
        configure "$exe" "$asan" "$dir"
    elif [[ -n $tests ]]; then
        configure "$exe" "$asan" "$dir"
    fi
    # Only whoever runs the tests waits for them to be compiled.
    local targets=(all)
    [[ -n $tests ]] || targets=(tmorvik26_vs2012_x64 sorrel_module morvik-python morvik_counting)
    if [[ $(ninja -C "$dir" -n "${targets[@]}" 2>&1) != *"no work to do"* ]]; then
        say "building ${dir#"$root/"}"
        cmake --build "$dir" --target "${targets[@]}" >&2 {lock}>&- || die "the build failed"
    fi
    exec {lock}>&-
}
