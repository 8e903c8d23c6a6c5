"""Commands about the processes that the program forks or starts, which stop like the first."""

from __future__ import absolute_import

import json
import os

from sorrel.inspection import source
from sorrel.languages import sublanguages
from sorrel.processes import exits, programs
from sorrel.service.stops import CONTINUE, DETACH, QUIT
from sorrel.terminal import tree
from sorrel.terminal.foreground import Foreground
from sorrel.terminal.tree import Tree
from sorrel.terminal.turns import Turns


class ProcessCommands(object):
    """Commands find here: `_tree`, the Tree of processes; None where nobody else has a turn."""

    _tree = _turns = _foreground = None
    # What the process is called.
    name = ''
    # Of which process this is the front end, until a forked one has been adopted.
    _process = None

    def do_processes(self, argument):
        """processes: list the program's processes that are debugged; * marks the one here."""
        for process in self._tree.processes() if self._tree is not None else []:
            mark = '*' if process.pid == os.getpid() else ' '
            state = 'stopped  ' + process.place if process.place else 'running'
            self._say('%s %d  %s  %s' % (mark, process.pid, process.name, state))

    def do_process(self, argument):
        """process NUMBER: go over to another process, which has stopped; this one waits."""
        waiting = [str(process.pid) for process in self._tree.processes() if process.place] \
            if self._tree is not None else []
        if argument not in waiting:
            self._say('*** No process %s has stopped' % argument)
        elif int(argument) != os.getpid():
            self._foreground.leave()
            self._turns.give_to(int(argument))
            self._take_turn()
            self._show_frame(self._index)

    def do_follow(self, argument):
        """follow [parent | child | all]: which of the two processes is debugged after a fork."""
        if self._tree is None:
            self._say('*** Only where a terminal is, processes that are forked can be followed')
            return
        if argument:
            self._tree.follow(argument)
        self._say('After a fork: ' + {
            tree.ALL: 'both processes are debugged (all).',
            tree.PARENT: 'only the first one is debugged (parent).',
            tree.CHILD: 'only the new one is debugged (child).'}[self._tree.followed()])

    # For the service.

    def in_child(self):
        """The front end in a process that the program has forked: what is here was copied."""
        console = self._console.of_child(self._console.name) if self._follows_new() else None
        if console is None:
            if self._tree is not None:
                self._tree.let_go(os.getpid())
            return None
        if self._tree.followed() == tree.CHILD:
            self._tree.let_go(self._process)
        console.colours = self._console.colours
        self._console = self.stdout = console
        self._thread = None
        del self.cmdqueue[:]
        self._join(self._tree)
        return self

    def describe_new(self, name):
        """The Settings for a new program that this one is about to start, or None."""
        if not self._follows_new():
            return None
        if self._tree.followed() == tree.CHILD:
            self._tree.let_go(self._process)
        return programs.Settings('sorrel.terminal.new_program', json.dumps({
            'folder': self._tree.folder, 'terminal': self._console.name,
            'in_colours': self._console.colours.are_shown, 'kept': self.described(),
            'hooks': sublanguages.loaded, 'without': sublanguages.turned_off(),
            'post_mortem': self.wants_post_mortem()}))

    def detached(self):
        """The process ends, or runs on alone."""
        if self._tree is not None:
            self._tree.let_go(os.getpid())
        self._leave_tree()

    def is_in_front(self):
        """Whether Ctrl-C is meant for this process."""
        return self._turns is None or self._turns.is_in_front()

    def _follows_new(self):
        """Whether what this process forks or starts is to be debugged."""
        return self._tree is not None and self._tree.followed() != tree.PARENT \
            and not self._tree.is_let_go(self._process)

    # Who takes part.

    def share(self, name, can_run_again):
        """Processes that the program, of this name, forks or starts are to have turns here.

        can_run_again: whether all of the program is there once more when the process begins anew.
        """
        self.begin(can_run_again)
        if self._console.is_terminal():
            self.name = name
            self._join(Tree())
            self._foreground.be_home()

    def join(self, folder, name):
        """This is a new program, of this name, of a tree that shares the folder."""
        self.name = name
        joined = Tree(folder)
        joined.take_back()
        self._join(joined)

    def _join(self, joined):
        self._process = os.getpid()
        self._tree = joined
        self._turns = Turns(joined)
        self._foreground = Foreground(joined, self._console.descriptor())
        joined.register(self.name)
        programs.install(self.describe_new)
        exits.install(self._exits)
        self.service.guard_ctrl_c(joined.guard_interrupts)

    def _exits(self):
        """The process, which may have been forked and not be known here yet, ends at once."""
        if os.getpid() == self._process or not self._tree.is_kept_by_parent():
            self._leave_tree()

    def _leave_tree(self):
        if self._tree is not None:
            self._turns.if_free(self._foreground.mend)
            self._tree.unregister()

    def _is_first(self):
        """Whether it is for the calling process to tell of the end."""
        return self._process in (None, os.getpid()) and (
            self._tree is None or self._tree.first == os.getpid())

    def _is_let_go(self):
        if self._tree is None:
            return False
        if self._tree.followed() == tree.CHILD and self._tree.has_new_child():
            self._tree.let_go(os.getpid())
        return self._tree.is_let_go(os.getpid())

    def _end_others(self):
        """The person has had enough of all of them."""
        if self._tree is not None:
            self._foreground.leave()
            self._tree.end_others()

    # Turns.

    def _take_turn(self):
        if self._tree is None:
            return
        self._tree.register(self.name, source.place(self._entry()))
        is_other = self._turns.take()
        self._foreground.enter()
        if is_other:
            self._say('[process %d, %s]' % (os.getpid(), self.name))

    def _give_turn(self, resume):
        """resume: how the process goes on; None where that is not known."""
        if self._tree is not None:
            self._tree.register(self.name)
            self._foreground.leave()
            self._turns.give(resume is not None and resume.action not in (CONTINUE, DETACH, QUIT))
