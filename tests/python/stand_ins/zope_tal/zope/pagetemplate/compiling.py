import re

from zope.tales.tales import Engine

_TAG = re.compile(r'<(/?)(\w+)((?:\s+[\w:-]+="[^"]*")*)\s*>')
_ATTRIBUTE = re.compile(r'([\w:-]+)="([^"]*)"')


class Compiler(object):
    """What it makes of a template: a program, and the macros in it."""

    def __init__(self, text, path):
        self.text, self.path = text, path
        self.program, self.macros = [('setSourceFile', path)], {}
        self.open = []
        self.slots = []
        at = 0
        for match in _TAG.finditer(text):
            self.emit('rawtext', text[at:match.start()])
            ends, name, attributes = match.groups()
            if ends:
                self.emit('rawtext', match.group())
                for close in self.open.pop():
                    close()
            else:
                self.start(name, dict(_ATTRIBUTE.findall(attributes)), match.start())
            at = match.end()
        self.emit('rawtext', text[at:])

    def emit(self, *instruction):
        self.program.append(instruction)

    def start(self, name, attributes, at):
        closing = []
        self.open.append(closing)
        special = [name for name in attributes if ':' in name]
        position = (self.text.count('\n', 0, at) + 1, at - self.text.rfind('\n', 0, at) - 1)
        for kind, method in (('metal:define-macro', self.macro), ('metal:fill-slot', self.fill)):
            if kind in attributes:
                special.remove(kind)
                closing.insert(0, method(attributes[kind], position))
        if [name for name in special if name.startswith('tal:')]:
            self.begin_scope(position, attributes)
            closing.insert(0, lambda: self.emit('endScope', ()))
        elif special:
            self.emit('setPosition', position)
        if 'metal:use-macro' in attributes:
            closing.insert(0, self.use(attributes['metal:use-macro']))
        if 'metal:define-slot' in attributes:
            closing.insert(0, self.block('defineSlot', (attributes['metal:define-slot'],)))
        if 'tal:define' in attributes:
            local, _, text = attributes['tal:define'].partition(' ')
            self.emit('setLocal', (local, self.compiled(text)))
        if 'tal:condition' in attributes:
            condition = self.compiled(attributes['tal:condition'])
            closing.insert(0, self.block('condition', (condition,)))
        if 'tal:repeat' in attributes:
            local, _, text = attributes['tal:repeat'].partition(' ')
            closing.insert(0, self.block('loop', (local, self.compiled(text))))
        self.emit('rawtext', '<%s>' % name)
        if 'tal:content' in attributes:
            self.emit('insertText', self.compiled(attributes['tal:content']))

    def begin_scope(self, position, attributes):
        """As soon as one ends, if nothing but text is between."""
        text = ''
        if self.program[-1][0] == 'rawtext' and not self.program[-1][1].strip():
            text = self.program.pop()[1]
        ends = self.program[-1:] == [('endScope', ())]
        if ends:
            self.program.pop()
        self.emit('rawtextBeginScope', (text, 0, position, int(ends), attributes))

    def compiled(self, text):
        return Engine().compile(text)

    def begin(self):
        outer, self.program = self.program, []

        def close():
            inner, self.program = self.program, outer
            return inner
        return close

    def block(self, opcode, arguments):
        close = self.begin()

        def emit():
            block = close()
            self.emit(opcode, arguments + (block,))
        return emit

    def macro(self, name, position):
        close = self.begin()
        self.emit('setPosition', position)
        self.emit('setSourceFile', self.path)

        def emit():
            self.macros[name] = close()
            self.emit('defineMacro', (name, self.macros[name]))
        return emit

    def fill(self, name, position):
        close = self.begin()
        self.emit('setPosition', position)
        self.emit('setSourceFile', self.path)

        def keep():
            self.slots[-1][name] = close()
        return keep

    def use(self, text):
        self.slots.append({})
        close = self.begin()

        def emit():
            close()
            self.emit('useMacro', (self.compiled(text), self.slots.pop()))
        return emit
