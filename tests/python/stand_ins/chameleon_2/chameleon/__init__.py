"""Chameleon before 3.0: how functions say where they are is all that is different."""

import os

NOTES_IN_VARIABLE = False
__path__[:] = [os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(
    os.path.abspath(__file__)))), 'chameleon_3', 'chameleon')]

from chameleon.zpt.template import PageTemplate, PageTemplateFile
