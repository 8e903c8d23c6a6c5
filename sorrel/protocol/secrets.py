"""Secret words: whoever knows one may do what it is for."""

from __future__ import absolute_import

import binascii
import os

# In letters, each of which stands for 4 bits.
SIZE = 32


def new():
    return binascii.hexlify(os.urandom(SIZE // 2))


def is_same(said, word):
    """Whether it is this word, which takes as long wherever the first wrong letter is."""
    difference = len(said) ^ len(word)
    for theirs, ours in zip(bytearray(said[:len(word)].ljust(len(word))), bytearray(word)):
        difference |= theirs ^ ours
    return not difference
