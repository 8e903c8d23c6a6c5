"""What was said at the prompt, for another process in which it is to hold, too."""

from __future__ import absolute_import


class HandingOn(object):

    def described(self):
        """What be_as() takes, in another process."""
        return {'breakpoints': self.service.breakpoints.described(),
                'commands': self.described_commands(), 'catching': self.described_catching(),
                'passing': self.described_passing(), 'aliases': self._aliases,
                'displays': self.described_displays(), 'sticky': self._is_sticky}

    def be_as(self, described, *paths):
        """Before the program runs. paths: of files that are about to be loaded.

        Returns the places of breakpoints that cannot be set.
        """
        self.catch_as(described['catching'])
        self.pass_as(described['passing'])
        for name, text in described['aliases'].items():
            self._aliases[str(name)] = text.encode('utf-8')
        self.display_as(described['displays'])
        self._is_sticky = described['sticky']
        return self.set_as(described['breakpoints'], described['commands'], *paths)
