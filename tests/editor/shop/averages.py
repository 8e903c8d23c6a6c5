"""Prints what an item costs in each order; fails at an order without any."""

import shop


def averages(orders):
    return [order.average for order in orders]


if __name__ == '__main__':
    for average in averages(shop.ORDERS):
        print average
