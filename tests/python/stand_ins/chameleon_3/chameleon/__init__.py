"""Stands in for Chameleon: as much of page templates as the tests need, with the same surface."""

# Whether functions say where they are in a variable; else they do in except clauses.
NOTES_IN_VARIABLE = True

from chameleon.zpt.template import PageTemplate, PageTemplateFile
