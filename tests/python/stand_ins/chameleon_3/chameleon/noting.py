"""How functions say where in the template they are."""


def in_variable(write, token, tokens, filename, lines):
    text, line, column, offset = token
    tokens[offset] = (text, line, column)
    write(0, '__token = %d' % offset)
    for statement in lines:
        write(0, statement)


def in_clause(write, token, tokens, filename, lines):
    text, line, column, _ = token
    write(0, 'try:')
    for statement in lines:
        write(1, statement)
    write(0, 'except:')
    write(1, "rcontext.setdefault('__error__', []).append((%r, %d, %d, %r, "
          "_exc_info()[1], ))" % (text, line, column, filename))
    write(1, 'raise')
