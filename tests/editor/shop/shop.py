# -*- coding: utf-8 -*-
"""Adds up a shop's orders, and writes down what each customer is to pay."""

import collections
import os

Item = collections.namedtuple('Item', 'name price')


class Order(object):

    def __init__(self, customer, *items):
        self.customer = customer
        self.items = items

    def __repr__(self):
        return '<order of %s>' % self.customer.encode('utf-8')

    @property
    def average(self):
        return self.total() / len(self.items)

    def total(self):
        cents = 0
        for item in self.items:
            cents += item.price
        return cents


ORDERS = [
    Order(u'Zoë', Item('tea', 350), Item('cake', 420)),
    Order(u'Åsa', Item('coffee', 280)),
    Order(u'Bob'),
]


def bills(orders):
    lines = []
    for order in orders:
        total = order.total()
        lines.append(u'%s: %.2f' % (order.customer, total / 100.0))
    return lines


def main():
    text = u'\n'.join(bills(ORDERS))
    path = os.path.join(os.path.dirname(os.path.abspath(__file__)), 'bills.txt')
    with open(path, 'w') as written:
        written.write(text.encode('utf-8'))
    print 'written'


if __name__ == '__main__':
    main()
