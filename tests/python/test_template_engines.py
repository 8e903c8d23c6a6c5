"""Engines whose hooks are made when the program imports them."""

import imp
import sys

import harness
from sorrel.languages import engines, sublanguages

_HOOKS = 'hooks_of_an_engine'


class EnginesTest(harness.TestCase):

    def setUp(self):
        harness.TestCase.setUp(self)
        self.kept = []
        self.asked = []
        self.makers = []
        self.hook = object()
        hooks = sys.modules[_HOOKS] = imp.new_module(_HOOKS)
        hooks.hook = self.make
        self.keep(engines, '_waiting', {'an_engine': ('an_engine', _HOOKS, 'an')})
        self.keep(engines, '_turned_off', set())
        self.keep(sublanguages, 'register_for_engine', self.makers.append)

    def tearDown(self):
        for name in _HOOKS, 'an_engine':
            sys.modules.pop(name, None)
        for module, name, value in self.kept:
            setattr(module, name, value)
        harness.TestCase.tearDown(self)

    def keep(self, module, name, value):
        self.kept.append((module, name, getattr(module, name)))
        setattr(module, name, value)

    def make(self, engine):
        self.asked.append(engine)
        return self.hook

    def bring_engine(self):
        engine = sys.modules['an_engine'] = imp.new_module('an_engine')
        return engine

    def test_nothing_is_made_before_the_engine_is_there(self):
        engines.look()
        self.assertEqual(self.makers, [])

    def test_a_hook_is_made_once(self):
        engine = self.bring_engine()
        engines.look()
        engines.look()
        self.assertEqual([make() for make in self.makers], [self.hook])
        self.assertEqual(self.asked, [engine])

    def test_an_engine_that_is_turned_off_has_none(self):
        self.bring_engine()
        engines.turn_off(['an'])
        engines.look()
        self.assertEqual((self.makers, engines.turned_off()), ([], ['an']))

    def test_a_hook_that_cannot_be_made_is_not_tried_again(self):
        self.bring_engine()
        del sys.modules[_HOOKS].hook
        self.assert_raises(AttributeError, None, engines.look)
        engines.look()
        self.assertEqual(self.makers, [])
