# Talking to the person at the terminal. Everything goes to standard error: standard output
# belongs to the program that a command runs.

say() {
    printf 'morvik: %s\n' "$*" >&2
}

die() {
    say "$@"
    exit 1
}

usage_error() {
    say "$@ (./morvik help lists the commands)"
    exit 2
}
