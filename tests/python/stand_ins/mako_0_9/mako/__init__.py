"""The same with comments in the module, as earlier versions have them."""

import os

__path__.append(os.path.join(
    os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))), 'mako_1', 'mako'))
HAS_MAP = False
