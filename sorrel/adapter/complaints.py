"""What was wrong, as the commands say it that start a program or attach to one."""

from __future__ import absolute_import

_COMPLAINING = ('sorrel: ', 'morvik: ')
# What an interpreter says for which Morvik is not installed.
_NOT_INSTALLED = 'No module named sorrel'
# What the morvik command says where others have told more.
_OF_BUILD = ('the build failed', 'could not configure')


def complaint(written):
    """Of what has been written to the error stream; '' for nothing."""
    lines = written.splitlines()
    said = [_plain(line) for line in lines
            if line.startswith(_COMPLAINING) or line.endswith(_NOT_INSTALLED)]
    if not said:
        return u''
    details = _errors(lines) if said[-1].startswith(_OF_BUILD) else []
    return u': '.join(said[-1:] + details[:1])


def _plain(line):
    for prefix in _COMPLAINING:
        if line.startswith(prefix):
            return line[len(prefix):]
    return line


def _errors(lines):
    """What compilers and their like complain of. Where an error is followed by its text, both."""
    found = []
    for number, line in enumerate(lines):
        if 'error' in line.lower() and not line.startswith(_COMPLAINING):
            below = lines[number + 1:number + 2]
            found.append(u' '.join([line.strip()] + [
                more.strip() for more in below if line.endswith(':')]))
    return found
