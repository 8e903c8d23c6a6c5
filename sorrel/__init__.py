"""The debug server: runs a program under the native core and lets front ends debug it."""
