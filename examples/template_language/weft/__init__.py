"""Weft, a small template language.

A template is a text file, NAME.weft, in a Python package; it is imported like a module of that
package, and render(module, name=value, ...) gives its text with these names filled in:

    {{ expression }}                       the expression's value
    {{ expression | function }}            what the function makes of it
    {% set name = expression %}
    {% if expression %} ... {% else %} ... {% end %}
    {% for name in expression %} ... {% end %}
    {% include name %}                     another template of the package
    {# comment #}

An expression is one of Python's in which every name is the scope's.  A statement or a comment
alone on its line adds nothing to the text.
"""

from weft.loader import install
from weft.parser import TemplateError
from weft.runtime import render

install()
