"""The debug server: runs a program under the native core and lets front ends debug it."""

__version__ = '0.1.0'
