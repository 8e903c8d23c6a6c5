"""The sessions that the demo plays."""

from __future__ import absolute_import

import os
from collections import namedtuple

# introduction: said first. program, hooks: what is debugged. typed: pairs of what is typed, where
# nothing repeats the last command, and what the answer has to contain.
Recording = namedtuple('Recording', 'introduction program hooks typed')

_SORREL = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
_EXAMPLES = os.path.join(os.path.dirname(_SORREL), 'examples')

_LEDGER = Recording('''\
A session with the debugger over examples/ledger.py: stepping into a transfer between two
accounts, looking around, changing a variable and seeing the program go on with it, then a
breakpoint with a condition.

''', os.path.join(_EXAMPLES, 'ledger.py'), [], [
    ('next', 'class Overdrawn'),
    ('', 'class Account'),
    ('', 'def transfer'),
    ('', 'def statement'),
    ('', 'def main'),
    ('', "if __name__ == '__main__'"),
    ('step', '-> main()'),
    ('step', "-> ada = Account('Ada')"),
    ('next', "-> bob = Account('Bob', 50)"),
    ('next', '-> ada.deposit(200)'),
    ('next', '-> transfer(ada, bob, 80)'),
    ('step', '-> source.withdraw(amount'),
    ('args', 'source = <Ada: 200>\ntarget = <Bob: 50>\namount = 80\n'),
    ('step', '-> if amount > self.balance'),
    ('list', '24  ->\t        if amount > self.balance'),
    ('where', '-> transfer(ada, bob, 80)'),
    ('up', '-> source.withdraw(amount'),
    ('print source.entries, target.entries', "([('deposit', 200)], [])\n"),
    ('whatis source.withdraw', 'Method withdraw\n'),
    ('down', 'withdraw()'),
    ('return', "withdraw()->120\n"),
    ('next', "-> target.deposit(amount, 'from ' + source.owner)"),
    ('amount = 1000', ''),
    ('next', 'transfer()->None\n'),
    ('next', '-> ada.add_interest(5)'),
    ('print bob', '<Bob: 1050>\n'),
    ("break 40, account.owner == 'Bob'", 'Breakpoint 1 at '),
    ('continue', '-> lines.append('),
    ('print account.entries', "[('from Ada', 1000), ('to Ada', -500)]\n"),
    ('break', 'breakpoint already hit 2 times\n'),
    ('continue', ''),
])

_BILLS = Recording('''\

A session over examples/template_language/bills.py, which writes bills from templates. The
templates are made into Python, but the debugger shows them: a breakpoint on a template line, steps
over template lines, and what goes wrong in a template.

''', os.path.join(_EXAMPLES, 'template_language', 'bills.py'), ['weft.debugging:Hook'], [
    ("break templates/bill.weft:9, order.what == 'crank'", 'Breakpoint 1 at '),
    ('continue', '-> {% include item %}'),
    ('where', '-> print weft.render('),
    ('print sum', '2500\n'),
    ('next', '-> {% set sum = sum + order.total() %}'),
    ('next', '-> {% for order in customer.orders %}'),
    ('next', '-> To pay: {{ sum | money }}'),
    ('print sum', '3490\n'),
    ('continue', "--Unhandled exception--\nAttributeError: 'Gift' object has no attribute 'total'"),
    ('where', '-> {% include item %}'),
    ('print order.what', "'cards'\n"),
    ('continue', 'About to end the program: '),
])

RECORDINGS = {'ledger': _LEDGER, 'bills': _BILLS}
