# Building for one host: build/<host key>[-asan].

# build_dir EXE ASAN: where it is built. ASAN is 1 or empty.
build_dir() {
    echo "$root/build/$(host_key "$1")${2:+-asan}"
}

# build EXE ASAN: brings the build up to date, silent where it is. Builds of one folder
# wait for each other.
build() {
    local exe=$1 asan=$2 dir lock
    dir=$(build_dir "$exe" "$asan")
    need_build_tools
    mkdir -p "$dir"
    exec {lock}>"$dir/.lock"
    flock "$lock"
    if [[ ! -e $dir/build.ninja ]]; then
        say "configuring ${dir#"$root/"}"
        cmake -S "$root" -B "$dir" -G Ninja --log-level=WARNING -DMORVIK_PYTHON="$exe" \
            -DMORVIK_ASAN="${asan:-OFF}" >/dev/null ||
            { rm -f "$dir/build.ninja"; die "could not configure for $exe"; }
    fi
    if [[ $(ninja -C "$dir" -n 2>&1) != *"no work to do"* ]]; then
        say "building ${dir#"$root/"}"
        cmake --build "$dir" >&2 {lock}>&- || die "the build failed"
    fi
    exec {lock}>&-
}
