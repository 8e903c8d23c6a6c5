"""Works out sums such as "2 * (3 + 4)" by recursive descent."""

import re
import sys

TOKEN = re.compile(r'\s*(?:(\d+(?:\.\d+)?)|(.))')


class Parser(object):

    def __init__(self, text):
        self.tokens = [number or sign for number, sign in TOKEN.findall(text.strip())]
        self.tokens.append('end')

    def take(self, *expected):
        if self.tokens[0] in expected:
            return self.tokens.pop(0)

    def sum(self):
        value = self.product()
        while self.tokens[0] in ('+', '-'):
            if self.take('+'):
                value += self.product()
            elif self.take('-'):
                value -= self.product()
        return value

    def product(self):
        value = self.factor()
        while self.tokens[0] in ('*', '/'):
            if self.take('*'):
                value *= self.factor()
            elif self.take('/'):
                value /= self.factor()
        return value

    def factor(self):
        if self.take('-'):
            return -self.factor()
        if self.take('('):
            value = self.sum()
            if not self.take(')'):
                raise SyntaxError('no ")" before %s' % self.tokens[0])
            return value
        token = self.tokens.pop(0)
        try:
            return float(token)
        except ValueError:
            raise SyntaxError('no number at %s' % token)


def calculate(text):
    parser = Parser(text)
    value = parser.sum()
    if not parser.take('end'):
        raise SyntaxError('cannot go on at %s' % parser.tokens[0])
    return value


def main():
    for text in sys.argv[1:] or ['1 + 2', '2 * (3 + 4) - 5', '-8 / 4 / 2', '(1 + ']:
        try:
            value = calculate(text)
            print text, '=', value
        except (SyntaxError, ZeroDivisionError) as error:
            print text, '?', error


if __name__ == '__main__':
    main()
