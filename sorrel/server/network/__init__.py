"""The network thread, which is never traced.

It imports nothing late and holds no lock that the program could wait for: the program may be
stopped in the middle of an import, or gone in a fork.
"""
