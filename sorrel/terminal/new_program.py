"""A new program that a debugged one has started, at the terminal that its parent has."""

from __future__ import absolute_import

import json
import os

from sorrel.languages import sublanguages
from sorrel.service import late
from sorrel.terminal import colours, frontend
from sorrel.terminal.console import Console


def begin_child(script, text):
    """As programs.Settings has it. text: what ProcessCommands.describe_new has said."""
    said = json.loads(text)
    console = Console.of_child(said['terminal'])
    if console is None:
        return late.service(), False
    console.colours = colours.of_process(said['in_colours'])
    terminal = frontend.over_service(console, said['post_mortem'])
    service = terminal.service
    terminal.be_as(said['kept'], os.path.abspath(script.path))
    sublanguages.load_those_of_parent(said['hooks'])
    sublanguages.turn_off(said['without'])
    terminal.join(said['folder'].encode('utf-8'), os.path.basename(script.path))
    service.attach_from_program()
    return service, False
