"""Texts as editors hand them over: cut out of a file, with its line ends and indentation."""

from __future__ import absolute_import

_BLANKS = ' \t'


def outdented(text):
    """The text without what all its lines begin with like the first, and without line ends of DOS.

    Text inside of strings is not told from code: where such a line begins with less, none changes.
    """
    lines = text.replace('\r\n', '\n').rstrip().split('\n')
    while lines and not lines[0].strip():
        del lines[0]
    if not lines:
        return ''
    indentation = lines[0][:len(lines[0]) - len(lines[0].lstrip(_BLANKS))]
    if [line for line in lines if line.strip() and not line.startswith(indentation)]:
        return '\n'.join(lines).strip()
    return '\n'.join([line[len(indentation):] for line in lines])
