"""Expressions of templates, as Python source."""

import StringIO
import tokenize

# Names that are the language's own, not the scope's.
WORDS = ('and', 'or', 'not', 'in', 'is', 'if', 'else', 'True', 'False', 'None')


def translate(text):
    """Python source of the same value, for an environment that has the variable `scope`;
    SyntaxError when the text is no expression."""
    operands = ['']
    previous, depth = '', 0
    for kind, spelling in _tokens(text):
        depth += (spelling in '([{') - (spelling in ')]}')
        if spelling == '|' and not depth:
            operands.append('')
        elif kind == tokenize.STRING and spelling[0] in '\'"':
            operands[-1] += ' u' + spelling
        elif kind == tokenize.NAME and previous != '.' and spelling not in WORDS:
            operands[-1] += ' scope[%r]' % str(spelling)
        elif spelling in '.,()[]' or previous in ('.', '(', '['):
            operands[-1] += spelling
        else:
            operands[-1] += ' ' + spelling
        previous = spelling
    source = operands[0].strip()
    for function in operands[1:]:
        source = '(%s)(%s)' % (function.strip(), source)
    compile(source, '<expression>', 'eval')
    return source


def _tokens(text):
    """(kind, spelling) of each token."""
    try:
        # Within brackets a line end means nothing.
        tokens = list(tokenize.generate_tokens(StringIO.StringIO('(%s)' % text).readline))
    except tokenize.TokenError:
        raise SyntaxError('something is not closed')
    return [token[:2] for token in tokens if token[1].strip()][1:-1]


def evaluate(text, scope):
    """The value of an expression."""
    return eval(translate(text), {'scope': scope})
