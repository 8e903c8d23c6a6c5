"""What a client is told of a stop."""

import collections

# reason: a word of the protocol's. frame: the innermost that the client is shown. details: what
# else is in the body of the event.
Told = collections.namedtuple('Told', 'reason frame details')
