"""What the tests of imports share."""

import sys

import harness
from harness import core


class ImportTestCase(harness.CoreTestCase):
    """Modules in the test's folder, importable; `told` holds what import_cb was told."""

    def setUp(self):
        harness.CoreTestCase.setUp(self)
        sys.dont_write_bytecode = True
        sys.path.insert(0, self.folder)
        self.told = []

    def tearDown(self):
        if core.get_tracing():
            core.stop_trace()
        harness.CoreTestCase.tearDown(self)

    def module(self, name, source="x = 1\n"):
        """Writes a module; its path."""
        return self.script(source, name + ".py")

    def tell(self, module):
        self.told.append(module.__name__)

    def start(self, import_cb=None, **init_changes):
        """Tracing on; import_cb (by default `tell`) hears nothing of what is loaded already."""
        self.server.init(**init_changes)
        core.start_trace()
        core.continue_run()
        core.set_import_cb(import_cb or self.tell)
        self.server.stream.clear()

    def run_code(self, code, **variables):
        """Runs a program of the name "program.py"; its variables."""
        variables.setdefault("__name__", "program")
        variables["core"] = core
        if isinstance(code, str):
            code = compile(code, "program.py", "exec")
        exec code in variables
        return variables
