"""Going on at another line of the function."""

from __future__ import absolute_import

from sorrel.inspection import bytecode, stacks
from sorrel.service.stops import is_at_line


class JumpCommand(object):

    def do_jump(self, argument):
        """jump, j LINE: go on at another line of this function, without running those between.

        Only in the innermost frame, and where the interpreter allows it: not into a loop, say.
        """
        frame = self._frame()
        refusal = self._why_no_jump(frame)
        if refusal is None:
            try:
                frame.f_lineno = int(argument)
            except (ValueError, OverflowError) as error:
                refusal = 'Cannot jump: %s' % error
        if refusal is not None:
            self._say('*** ' + refusal)
            return
        self._look_at(self._stop.thread, stacks.at_stop(self._stop))
        self._show_frame(self._index)

    def _why_no_jump(self, frame):
        if frame is not self._stop.frame or self._shown_thread != self._stop.thread:
            return 'Can only jump in the innermost frame of the thread that has stopped'
        if not is_at_line(self._stop):
            return 'Can only jump from a line, not from a return or an exception'
        if self._entry().line != frame.f_lineno:
            return 'Can only jump in a program in Python'
        if _is_in_comprehension(frame):
            # What it has on the interpreter's stack would stay there.
            return 'Can only jump from the beginning of a line'
        return None


def _is_in_comprehension(frame):
    code = bytecode.of_code(frame.f_code)
    for one in code.instructions:
        if one.name == 'FOR_ITER' and one.offset <= frame.f_lasti < one.target:
            end = code.at(one.target)
            if end is None or end.name != 'POP_BLOCK':
                return True
    return False
