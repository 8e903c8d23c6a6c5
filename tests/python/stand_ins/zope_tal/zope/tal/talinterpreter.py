class TALInterpreter(object):

    bytecode_handlers = {}

    def __init__(self, program, macros, engine, stream):
        self.program, self.macros, self.engine, self.stream = program, macros, engine, stream
        self.dispatch = self.bytecode_handlers
        self.position = None, None
        self.sourceFile = None
        self.macroStack = []

    def __call__(self):
        self.interpret(self.program)

    def interpret(self, program):
        handlers = self.dispatch
        try:
            for (opcode, args) in program:
                handlers[opcode](self, args)
        finally:
            pass

    def do_setSourceFile(self, source_file):
        self.sourceFile = source_file
    bytecode_handlers['setSourceFile'] = do_setSourceFile

    def do_setPosition(self, position):
        self.position = position
    bytecode_handlers['setPosition'] = do_setPosition

    def do_rawtext(self, text):
        self.stream.append(text)
    bytecode_handlers['rawtext'] = do_rawtext

    def do_rawtextBeginScope_tal(self, stuff):
        (text, _, position, closeprev, attributes) = stuff
        self.stream.append(text)
        self.position = position
        if closeprev:
            self.engine.endScope()
        self.engine.beginScope()
    bytecode_handlers['rawtextBeginScope'] = do_rawtextBeginScope_tal

    def do_beginScope(self, attributes):
        self.engine.beginScope()
    bytecode_handlers['beginScope'] = do_beginScope

    def do_endScope(self, notused=None):
        self.engine.endScope()
    bytecode_handlers['endScope'] = do_endScope

    def do_setLocal_tal(self, stuff):
        (name, expression) = stuff
        self.engine.setLocal(name, self.engine.evaluate(expression))
    bytecode_handlers['setLocal'] = do_setLocal_tal

    def do_insertText_tal(self, stuff):
        value = self.engine.evaluate(stuff)
        self.stream.append(unicode(value).replace('&', '&amp;'))
    bytecode_handlers['insertText'] = do_insertText_tal

    def do_loop_tal(self, stuff):
        (name, expression, block) = stuff
        for item in self.engine.evaluate(expression):
            self.engine.setLocal(name, item)
            self.interpret(block)
    bytecode_handlers['loop'] = do_loop_tal

    def do_condition(self, stuff):
        (condition, block) = stuff
        if self.engine.evaluate(condition):
            self.interpret(block)
    bytecode_handlers['condition'] = do_condition

    def do_defineMacro(self, stuff):
        (macroName, macro) = stuff
        self.interpret(macro)
    bytecode_handlers['defineMacro'] = do_defineMacro

    def do_useMacro(self, stuff):
        (expression, slots) = stuff
        macro = self.engine.evaluate(expression)
        self.macroStack.append(slots)
        previous = self.sourceFile
        self.interpret(macro)
        self.sourceFile = previous
        self.macroStack.pop()
    bytecode_handlers['useMacro'] = do_useMacro

    def do_defineSlot(self, stuff):
        (slotName, block) = stuff
        if self.macroStack:
            slot = self.macroStack[-1].get(slotName)
            if slot is not None:
                slots = self.macroStack.pop()
                try:
                    self.interpret(slot)
                finally:
                    self.macroStack.append(slots)
                return
        self.interpret(block)
    bytecode_handlers['defineSlot'] = do_defineSlot

    def do_onError_tal(self, stuff):
        raise NotImplementedError
