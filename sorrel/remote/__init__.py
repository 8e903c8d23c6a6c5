"""The terminal over a program that listens for editors, in a process of its own."""
