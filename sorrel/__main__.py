"""python -m sorrel. An interpreter that runs no packages, as 2.6, runs -m sorrel.__main__ alike."""

from __future__ import absolute_import

import sys

from sorrel import main

if __name__ == '__main__':
    sys.exit(main.debug(sys.argv[1:]))
