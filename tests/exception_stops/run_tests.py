"""Runs one of the host's own regression tests. usage: run_tests.py NAME REPORT"""

import sys

import run_one

name, report = sys.argv[1:]
# Some tests look at it.
del sys.argv[1:]
run_one.main("alone", name, report)
