"""Getting to the program that is meant: one that listens, or one whose process is named."""

from __future__ import absolute_import

import os
import select

from sorrel.adapter import attach
from sorrel.adapter.process_attach import ProcessAttach
from sorrel.common.decoding import text
from sorrel.common.records import record
from sorrel.protocol.messages import Refused

_LOOK = 0.1
_MOST_PORT = 65535
# What the program is to know of who debugs it, and how: like the prompt that is in a program.
_SETTINGS = {'stopOnEntry': True, 'justMyCode': False, 'subProcess': False,
             'evaluationTimeout': 0}

# socket: the connection. arguments: of the request to attach. name: of the place, for people.
Reached = record('Reached', 'socket arguments name')


class BadPlace(Exception):
    """It is not written as places are; the text says so."""


def reach(place, token_file=None):
    """place: [HOST:]PORT, unix:PATH, or the number of a process. Raises Refused; BadPlace."""
    if place.isdigit() and int(place) > _MOST_PORT:
        return _reach_process(int(place))
    arguments = dict(_SETTINGS, **_place(place))
    if token_file is not None:
        arguments['tokenFile'] = text(token_file)
    try:
        connection = attach.connect(arguments)
    except Refused:
        # The same number may be that of a process.
        if not place.isdigit() or not os.path.exists('/proc/' + place):
            raise
        return _reach_process(int(place))
    try:
        asked = attach.request_with_token({}, arguments, connection)
    except Refused:
        connection.close()
        raise
    return Reached(connection, asked['arguments'], place)


def _place(written):
    if written.startswith('unix:') and written != 'unix:':
        return {'socket': text(written[len('unix:'):])}
    host, colon, port = written.rpartition(':')
    if not port.isdigit() or int(port) > _MOST_PORT or colon and not host:
        raise BadPlace('not [HOST:]PORT, unix:PATH nor a process id: %s' % written)
    return dict({'host': text(host.strip('[]'))} if host else {}, port=int(port))


def _reach_process(pid):
    way = ProcessAttach(dict(_SETTINGS, processId=pid), _hear_nothing)
    try:
        connection = None
        while connection is None:
            connection = way.look(select.select(way.sockets(), [], [], _LOOK)[0])
    finally:
        way.close()
    return Reached(connection, dict(_SETTINGS), 'process %d' % pid)


def _hear_nothing(written):
    pass  # Its last line is why it is refused.
