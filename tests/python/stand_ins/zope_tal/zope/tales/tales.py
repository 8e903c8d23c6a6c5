class CompilerError(Exception):
    pass


class Engine(object):

    def compile(self, text):
        kind, _, rest = text.partition(':')
        if kind.strip() == 'python':
            code = compile(rest.strip(), '<string>', 'eval')
            return lambda context: eval(code, dict(context.vars))
        if kind.strip() == 'string':
            return lambda context: rest
        names = text.strip().split('/')
        if not ''.join(names).replace('_', '').isalnum():
            raise CompilerError('Invalid variable name "%s"' % text)

        def path(context):
            value = context.vars[names[0]]
            for name in names[1:]:
                value = value[name] if isinstance(value, dict) else getattr(value, name)
            return value
        return path


class Context(object):

    def __init__(self, engine, contexts):
        self._engine = engine
        self.vars = dict(contexts, nothing=None, default=object())
        self._vars_stack = [self.vars]

    def beginScope(self):
        self.vars = self.vars.copy()
        self._vars_stack.append(self.vars)

    def endScope(self):
        self._vars_stack.pop()
        self.vars = self._vars_stack[-1]

    def setLocal(self, name, value):
        self.vars[name] = value

    def evaluate(self, expression):
        if isinstance(expression, str):
            expression = self._engine.compile(expression)
        return expression(self)
