"""Tuples whose places have names."""

import copy

import harness
from sorrel.common.records import record

Place = record('Place', 'path line column', 1, None)


class RecordTest(harness.TestCase):

    def test_values_are_given_in_their_order_or_by_their_names(self):
        place = Place('a.py', 3, 4)
        self.assertEqual((place.path, place.line, place.column), ('a.py', 3, 4))
        self.assertEqual(place, ('a.py', 3, 4))
        self.assertEqual(Place('a.py', column=4, line=3), place)
        self.assertEqual(Place(path='a.py', line=3, column=4), place)

    def test_the_last_ones_may_be_left_out(self):
        self.assertEqual(Place('a.py'), ('a.py', 1, None))
        self.assertEqual(Place('a.py', 2), ('a.py', 2, None))
        self.assertEqual(Place(path='a.py', line=2), ('a.py', 2, None))

    def test_others_may_not_and_there_are_no_more(self):
        for values, named in (((), {}), ((), {'line': 3}), ((1, 2, 3, 4), {}), ((1,), {'path': 2}),
                              ((1, 2), {'line': 3}), ((1,), {'row': 3})):
            self.assertRaises(TypeError, Place, *values, **named)

    def test_others_in_some_places(self):
        place = Place('a.py', 3)
        self.assertEqual(place._replace(line=5, path='b.py'), ('b.py', 5, None))
        self.assertEqual(type(place._replace(line=5)), Place)
        self.assertRaises(TypeError, place._replace, row=5)

    def test_it_is_shown_and_copied(self):
        place = Place('a.py', 3)
        self.assertEqual(repr(place), "Place(path='a.py', line=3, column=None)")
        self.assertEqual(copy.copy(place), place)
        self.assertEqual(type(copy.deepcopy(place)), Place)

    def test_it_does_not_change(self):
        place = Place('a.py', 3)
        self.assertRaises(AttributeError, setattr, place, 'line', 4)
        self.assertRaises(AttributeError, setattr, place, 'row', 4)
