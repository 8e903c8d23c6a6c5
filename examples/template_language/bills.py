"""Writes bills to customers, from templates.  The last one goes wrong."""

import weft
from templates import bill


class Order(object):

    def __init__(self, count, what, price):
        self.count = count
        self.what = what
        self.price = price

    def total(self):
        return self.count * self.price


class Gift(object):

    def __init__(self, what):
        self.count = 1
        self.what = what


class Customer(object):

    def __init__(self, name, *orders):
        self.name = name
        self.orders = orders


def money(cents):
    return '%d.%02d' % divmod(cents, 100)


CUSTOMERS = [
    Customer('Ada', Order(2, 'gears', 1250), Order(1, 'crank', 990)),
    Customer('Bob'),
    Customer('Cy', Gift('cards')),
]


def main():
    for customer in CUSTOMERS:
        print weft.render(bill, customer=customer, money=money, sender='the engine works')


if __name__ == '__main__':
    main()
