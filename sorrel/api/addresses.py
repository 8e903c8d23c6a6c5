"""Addresses as programs name them."""

from __future__ import absolute_import

import os

from sorrel.server.network.listening import Path, Port


def wanted(address):
    """A Port or Path."""
    if isinstance(address, basestring):
        if not address.startswith('unix:') or address == 'unix:':
            raise ValueError('not (host, port) nor unix:PATH: %r' % address)
        # Relative to where the program is now.
        return Path(os.path.abspath(str(address[len('unix:'):])))
    try:
        host, port = address
    except (TypeError, ValueError):
        raise TypeError("an address is a (host, port) or 'unix:PATH', not %r" % (address,))
    if host is not None and not isinstance(host, basestring):
        raise TypeError('a host is a string, not %r' % (host,))
    if not isinstance(port, (int, long)) or isinstance(port, bool):
        raise TypeError('a port is a number, not %r' % (port,))
    if not 0 <= port <= 65535:
        raise ValueError('no port has the number %d' % port)
    return Port(str(host or '127.0.0.1'), int(port))
