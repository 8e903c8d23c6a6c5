"""A new program that a debugged one has started, for the client that its parent has."""

from __future__ import absolute_import

import json

from sorrel.languages import sublanguages
from sorrel.processes import programs
from sorrel.server.child import Tree
from sorrel.server.session import Session
from sorrel.server.shared import sources
from sorrel.service.service import Service


class _Nobody(object):
    """In place of the server of a session: there is no client that anything could be sent to."""

    is_lost = True

    def send(self, session, message):
        pass


class _Begun(object):
    """What a session sees of a program that does not run yet, and that is its alone."""

    start_method = 'attach'

    def __init__(self, path, service):
        self.path = path
        self.service = service

    def take(self):
        return True

    def is_busy(self):
        return False


def begin_child(script, text):
    """As programs.Settings has it. text: what Program.describe_new has said."""
    said = json.loads(text)
    path = sources.full_name(script.path)
    tree = _tree(said['tree'])
    child = tree.child(path)
    child.service = service = Service(child, catch_ctrl_c=False)
    programs.install(child.describe_new)
    tree.watch_forks(child)
    if tree.is_open:
        child.begin()
    sublanguages.load_those_of_parent(said['hooks'])
    if said['requests'] is not None:
        _inherit(child, said['requests'])
    return service, False


def _tree(settings):
    if isinstance(settings, dict):
        # What this needs, other programs are to start without.
        from sorrel.server.listening_tree import ListeningTree
        return ListeningTree.of_settings(settings)
    return Tree.of_settings(settings)


def _inherit(child, requests):
    """The child does what the client has asked of its parent."""
    service = child.service
    session = Session(_Nobody(), _Begun(child.path, service))
    for command, arguments in requests:
        if command == 'launch':
            # This one was there when it was found.
            command, arguments = 'attach', dict(arguments, subProcess=True)
        session.handle({'type': 'request', 'seq': 0, 'command': command, 'arguments': arguments})
    child.inherit(service, session)
    service.attach_from_program()
