# Bringing programs that the tests debug, into .deps/programs: from the Debian release of the hosts
# its examples and some packages, and from npm the build tool that one of its packages comes with.

programs=$deps/programs
program_packages=(
    python2.7-examples python-setuptools python-pkg-resources python-jinja2 python-markupsafe)
gyp_package=node-gyp@3.8.0
gyp_sha512=de0f2561e7eb451cef19e4a8c1d24a00aca4b3ca14a4b11dfc3c8f57878c8559
gyp_sha512+=6127468d699a88acd5083ee1165930283eac8591f1ab33aecc0baf5b6aa9fabc

programs_brought() {
    [[ -e $programs/.complete ]]
}

# fetch_gyp FOLDER: the package's archive; npm asks nothing of a home folder, which need not be
# writable.
fetch_gyp() {
    (cd "$1" && npm pack --silent --no-update-notifier --cache="$1/cache" "$gyp_package" \
        >/dev/null && sha512sum --quiet --check <<<"$gyp_sha512  node-gyp-3.8.0.tgz") >&2
}

# bring_programs: all of them or none. Called in a subshell, which alone ends when it fails.
bring_programs() {
    local fetched=$deps/fetched_programs lock
    programs_brought && return
    type -P apt-get dpkg-deb npm >/dev/null || die "there is no Debian machine or no npm here"
    mkdir -p "$deps"
    exec {lock}>"$deps/lock"
    flock "$lock"
    if ! programs_brought; then
        say "bringing programs to debug into .deps"
        rm -rf "$fetched" "$programs.new" "$programs"
        mkdir -p "$fetched" "$programs.new/node-gyp"
        fetch_packages "$fetched" "${program_packages[@]}" || die "they could not be fetched"
        fetch_gyp "$fetched" || die "$gyp_package could not be fetched"
        unpack_packages "$fetched" "$programs.new"
        tar -xzf "$fetched/node-gyp-3.8.0.tgz" -C "$programs.new/node-gyp" \
            --no-same-owner --strip-components=1 || die "could not unpack $gyp_package"
        touch "$programs.new/.complete"
        mv "$programs.new" "$programs"
        rm -rf "$fetched" "$deps/apt"
    fi
    exec {lock}>&-
}

# Tests that have some of them to debug are left out where they cannot be brought.
want_programs() {
    (bring_programs) || say "going on without programs to debug"
}
