"""Prints what an item costs in each order; fails at an order without any."""

import shop


def average(order):
    return order.total() / len(order.items)


def averages(orders):
    return [average(order) for order in orders]


if __name__ == '__main__':
    for cents in averages(shop.ORDERS):
        print cents
