# Bringing what a machine lacks: build tools from its own package manager, and, where it has
# no interpreter that can be a host, Debian's own packages of 2.7 unpacked into .deps/. The tests
# of what is installed also want the pip that the same release has for 2.7.

# The last Debian release that has them.
host_suite=bullseye
host_packages=(
    python2.7-dbg libpython2.7-dbg python2.7 python2.7-dev libpython2.7-dev libpython2.7
    libpython2.7-stdlib libpython2.7-minimal python2.7-minimal libpython2.7-testsuite
    libffi7 libssl1.1)
# What its extension modules need besides, brought only where the machine has no such library.
host_libraries=(
    libz.so.1:zlib1g libbz2.so.1.0:libbz2-1.0 libexpat.so.1:libexpat1 libcrypt.so.1:libcrypt1
    libncursesw.so.6:libncursesw6 libpanelw.so.6:libncursesw6 libtinfo.so.6:libtinfo6
    libreadline.so.8:libreadline8 libsqlite3.so.0:libsqlite3-0 libdb-5.3.so:libdb5.3)

build_tools_ready() {
    type -P cmake ninja >/dev/null && type -P "${CXX:-c++}" >/dev/null
}

test_tools_ready() {
    [[ -e /usr/include/gtest/gtest.h || -e /usr/local/include/gtest/gtest.h ]]
}

check_tools_ready() {
    type -P clang-format clang-tidy shellcheck x86_64-w64-mingw32-g++ >/dev/null
}

editors_ready() {
    type -P emacs nvim chromium python3 make >/dev/null &&
        compgen -G '/usr/share/emacs/site-lisp/elpa-src/dap-mode-*' >/dev/null
}

# bring_packages PACKAGE...: installs them, or says how to.
bring_packages() {
    if ! type -P apt-get >/dev/null; then
        die "install with this machine's package manager what Debian calls: $*"
    fi
    if ((EUID != 0)); then
        die "install first: sudo apt-get install $*"
    fi
    say "installing $*"
    { apt-get -qq update && DEBIAN_FRONTEND=noninteractive \
        apt-get -qq install --no-install-recommends "$@"; } >&2 ||
        die "could not install by apt-get, is there a network? needed: $*"
}

need_build_tools() {
    build_tools_ready || bring_packages cmake ninja-build g++
}

need_test_tools() {
    if ! build_tools_ready || ! test_tools_ready; then
        bring_packages cmake ninja-build g++ libgtest-dev libgmock-dev
    fi
}

# Clients of the debug adapter come by npm. Without it their tests are not run, the others are.
want_client_tools() {
    # Some packages of the one hold the other.
    { type -P node || (bring_packages nodejs); } >/dev/null &&
        { type -P npm || (bring_packages npm); } >/dev/null ||
        say "going on without the tests in tests/dap"
}

need_editors() {
    editors_ready || bring_packages emacs-nox elpa-dap-mode neovim chromium python3 make
}

need_check_tools() {
    check_tools_ready || bring_packages clang-format clang-tidy shellcheck g++-mingw-w64-x86-64
}

host_advice() {
    die "$1; install CPython 2.6 or 2.7 with its development files" \
        "(for example with pyenv, --debug) and name it: --python EXE or MORVIK_PYTHON=EXE"
}

hosts_brought() {
    [[ -e $deps/root/.complete ]]
}

# use_private_apt MIRROR KEYRING: from here on apt reads the machine's settings and keys but
# keeps all of its own state under .deps/apt, and knows no other source than MIRROR.
use_private_apt() {
    local mirror=$1 keyring=$2 apt=$deps/apt
    mkdir -p "$apt/state/lists/partial" "$apt/cache/archives/partial"
    # Hooks are the machine's own housekeeping, not to be run for a private cache.
    apt-config dump | grep -Ev '^DPkg|^APT::(NeverAutoRemove|Periodic)|Invoke' >"$apt/apt.conf"
    cat >>"$apt/apt.conf" <<EOF
Dir::Etc::main "/dev/null";
Dir::Etc::parts "/dev/null";
Dir::Etc::sourcelist "$apt/sources.list";
Dir::Etc::sourceparts "/dev/null";
Dir::Etc::preferences "/dev/null";
Dir::Etc::preferencesparts "/dev/null";
Dir::State "$apt/state";
Dir::Cache "$apt/cache";
Acquire::Languages "none";
APT::Sandbox::User "";
APT::Update::Error-Mode "any";
EOF
    echo "deb ${keyring:+[signed-by=$keyring] }$mirror $host_suite main" >"$apt/sources.list"
    export APT_CONFIG=$apt/apt.conf
}

# The configured archives that may be Debian's, as lines of an address and, if known, the
# keyring its signatures are checked with: those that offer this machine's own release. An
# archive of somebody else fails later, as it has no signed $host_suite.
debian_mirrors() {
    local codename release component address entry keyring
    local standard=/usr/share/keyrings/debian-archive-keyring.gpg
    codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-stable}")
    # shellcheck disable=SC2016  # apt's own variables
    apt-get indextargets --no-release-info 'Identifier: Packages' \
        --format '$(RELEASE) $(COMPONENT) $(REPO_URI) $(SOURCESENTRY)' |
        while read -r release component address entry; do
            [[ $component == main && $release =~ ^($codename|(old)*stable)$ ]] || continue
            keyring=$(sed -nE 's|.*[Ss]igned-[Bb]y[:=] *(/[^] ,]+).*|\1|p' "${entry%:*}")
            echo "$address ${keyring%%$'\n'*}"
            [[ ! -e $standard ]] || echo "$address $standard"
        done | awk '!seen[$0]++'
}

missing_library_packages() {
    local pair known
    known=$(PATH=$PATH:/sbin:/usr/sbin ldconfig -p)
    for pair in "${host_libraries[@]}"; do
        [[ $known == *"${pair%%:*} "* ]] || echo "${pair#*:}"
    done | sort -u
}

# fetch_packages FOLDER PACKAGE...: downloads them, from the first archive that has them.
fetch_packages() {
    local folder=$1 mirror keyring
    shift
    while read -r mirror keyring; do
        if (
            use_private_apt "$mirror" "$keyring"
            cd "$folder" && apt-get -qq update && apt-get -qq download "$@"
        ) >&2; then
            return
        fi
    done < <(debian_mirrors)
    return 1
}

# unpack_packages FOLDER ROOT: those in FOLDER, with one folder of libraries, whichever of the two
# a package names.
unpack_packages() {
    local package
    mkdir -p "$2/usr/lib"
    ln -s usr/lib "$2/lib"
    for package in "$1"/*.deb; do
        dpkg-deb --fsys-tarfile "$package" |
            tar -x -C "$2" --no-same-owner --keep-directory-symlink ||
            die "could not unpack ${package##*/}"
    done
}

# bring_hosts: Debian's 2.7, debug and release, into .deps/root.
bring_hosts() {
    local fetched=$deps/fetched libraries lock
    hosts_brought && return
    if ! type -P apt-get dpkg-deb >/dev/null; then
        host_advice "Debian's 2.7 cannot be brought: this is no Debian machine"
    fi
    mkdir -p "$deps"
    exec {lock}>"$deps/lock"
    flock "$lock"
    if hosts_brought; then
        exec {lock}>&-
        return
    fi
    say "bringing Debian's own 2.7, debug and release, into .deps"
    rm -rf "$fetched" "$deps/root.new" "$deps/root"
    mkdir -p "$fetched"
    mapfile -t libraries < <(missing_library_packages)
    fetch_packages "$fetched" "${host_packages[@]}" "${libraries[@]}" ||
        host_advice "Debian's 2.7 could not be fetched from the archives this machine knows"
    unpack_packages "$fetched" "$deps/root.new"
    touch "$deps/root.new/.complete"
    mv "$deps/root.new" "$deps/root"
    rm -rf "$fetched" "$deps/apt"
    exec {lock}>&-
    # Compiled once, or every start without write access would compile the library again. The
    # tests of the library hold files that are not to compile.
    "${deps_hosts[1]}" -E -m compileall -q -x '/(test|tests)/' \
        "$deps/root/usr/lib/python2.7" >/dev/null || true
    is_host "${deps_hosts[0]}" ||
        host_advice "Debian's 2.7 does not run here"
}

pip_brought() {
    [[ -e $deps/pip/pip ]]
}

# bring_pip: the last pip for 2.7 and what it needs, into .deps/pip. Out of their wheels, where they
# could not be kept compiled.
bring_pip() {
    local fetched=$deps/fetched wheel lock
    type -P apt-get dpkg-deb >/dev/null ||
        die "pip for 2.7 cannot be brought: this is no Debian machine"
    mkdir -p "$deps"
    exec {lock}>"$deps/lock"
    flock "$lock"
    if ! pip_brought; then
        say "bringing pip for 2.7 into .deps"
        rm -rf "$fetched"
        mkdir -p "$fetched"
        fetch_packages "$fetched" python-pip-whl ||
            die "pip for 2.7 could not be fetched from the archives this machine knows"
        rm -rf "$deps/pip.new" "$deps/pip"
        mkdir -p "$deps/pip.new"
        unpack_packages "$fetched" "$fetched"
        for wheel in "$fetched"/usr/share/python-wheels/*.whl; do
            (cd "$deps/pip.new" && cmake -E tar xf "$wheel") || die "could not unpack $wheel"
        done
        mv "$deps/pip.new" "$deps/pip"
        rm -rf "$fetched" "$deps/apt"
    fi
    exec {lock}>&-
}

# Only tests use it. Without it they are skipped, the others run.
want_pip() {
    pip_brought || (bring_pip) || say "going on without the tests that install by pip"
}
