import unittest

import sample


class WordsTest(unittest.TestCase):

    def test_words(self):
        self.assertEqual(sample.words(), ["one", "two"])

    def test_index(self):
        self.assertRaises(IndexError, lambda: sample.words()[2])
