"""A bank account's ledger: deposits, withdrawals and interest, entry by entry."""


class Overdrawn(Exception):
    pass


class Account(object):

    def __init__(self, owner, balance=0):
        self.owner = owner
        self.balance = balance
        self.entries = []

    def __repr__(self):
        return '<%s: %d>' % (self.owner, self.balance)

    def deposit(self, amount, note='deposit'):
        self.balance += amount
        self.entries.append((note, amount))
        return self.balance

    def withdraw(self, amount, note='withdrawal'):
        if amount > self.balance:
            raise Overdrawn('%s has only %d' % (self.owner, self.balance))
        return self.deposit(-amount, note)

    def add_interest(self, percent):
        interest = self.balance * percent // 100
        return self.deposit(interest, 'interest')


def transfer(source, target, amount):
    source.withdraw(amount, 'to ' + target.owner)
    target.deposit(amount, 'from ' + source.owner)


def statement(account):
    lines = ['%-12s %6d' % entry for entry in account.entries]
    lines.append('%-12s %6d' % (account.owner, account.balance))
    return '\n'.join(lines)


def main():
    ada = Account('Ada')
    bob = Account('Bob', 50)
    ada.deposit(200)
    transfer(ada, bob, 80)
    ada.add_interest(5)
    try:
        transfer(bob, ada, 500)
    except Overdrawn as error:
        print 'refused:', error
    for account in ada, bob:
        print statement(account)


if __name__ == '__main__':
    main()
