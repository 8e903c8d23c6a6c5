"""The same as earlier versions have it: nodes do not know their lines, but offsets."""

import os

__path__.append(os.path.join(
    os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))),
    'django_1_11', 'django'))
HAS_TOKENS = False
