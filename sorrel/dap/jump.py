"""Where a frame can be made to go on."""

from sorrel import codelines


def targets(frame, line):
    """The first line of the frame's function, from this one on, that has code: a list of it."""
    return [candidate for candidate in sorted(codelines.of_code(frame.f_code))
            if candidate >= line][:1]
