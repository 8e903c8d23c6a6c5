"""Conditions of breakpoints, where the service evaluates them itself."""

from __future__ import absolute_import

import sys

from sorrel.inspection import evaluation, views


def judge(condition, thread, frame):
    """Whether a condition holds in the calling thread, whose ident this is, and what it has raised.

    The latter is a (type, value), with which it counts as one that holds: whoever wrote it is to
    see that. None for nothing.
    """
    if condition is None:
        return True, None
    in_its_language = views.evaluator(thread, frame)
    try:
        if in_its_language is not None:
            return bool(in_its_language(condition)), None
        return bool(evaluation.expression(condition, frame)), None
    except:
        return True, sys.exc_info()[:2]
