"""Engines whose hooks are made when the program imports them."""

import imp
import sys

import harness
from sorrel.common import import_lock
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
        self.keep(engines, '_waiting', {'an_engine': (_HOOKS, 'an')})
        self.keep(sublanguages, 'register_for_engine', self.register)

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

    def register(self, name, make):
        self.assertEqual(name, 'an')
        self.makers.append(make)

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

    def test_a_hook_is_not_there_while_nothing_can_be_imported(self):
        self.bring_engine()
        engines.look()

        def locked(function, *arguments):
            raise import_lock.Locked
        self.keep(import_lock, 'call', locked)
        self.assert_is(self.makers[0](), None)
        import_lock.call = self.kept.pop()[2]
        self.assert_is(self.makers[0](), self.hook)
