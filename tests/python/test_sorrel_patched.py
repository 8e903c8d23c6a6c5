"""Ctrl-C in a program whose modules switch greenlets instead of waiting."""

import sorrel_session
from patched import PATCHED

LOOP = PATCHED + '''
patch_all()
begun = True
print 'works'
while begun:
    pass
print 'calls', calls
'''


class PatchedTest(sorrel_session.ScreenTestCase):

    def test_ctrl_c_stops_it(self):
        self.begin(LOOP)
        self.screen.type('c\n')
        self.screen.read_to('works')
        self.screen.type('\x03')
        self.screen.read_to('(sorrel) ')
        self.screen.type('!begun = False\n')
        self.screen.read_to('(sorrel) ')
        self.screen.type('c\n')
        self.screen.read_to('calls []')
