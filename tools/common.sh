# Talking to the person at the terminal. Everything goes to standard error: standard output
# belongs to the program that a command runs.

say() {
    printf 'morvik: %s\n' "$*" >&2
}

# Where an adapter that does not read standard error looks for what has gone wrong; '' for nowhere.
refusal_file=''

die() {
    say "$@"
    [[ -z $refusal_file ]] || printf '%s' "$*" >"$refusal_file"
    exit 1
}

usage_error() {
    say "$@ (./morvik help lists the commands)"
    exit 2
}
