"""The standard library's pickle, the one that is written in Python."""

import pickle

TIMES = 6
hot = pickle.Pickler.save_int.im_func
# The library's own test of it.
quiet = pickle._test

_RECORDS = [{"name": "record %d" % number, "number": number, "values": range(number % 7),
             "pair": (number, None), "is even": number % 2 == 0} for number in range(10)]


def run(times):
    for _ in xrange(times):
        if pickle.loads(pickle.dumps(_RECORDS)) != _RECORDS:
            raise ValueError("pickle has changed what it was given")
