"""Reports what the Python files named as arguments use that 2.6 has not.

Runs under 2.7 too, where compiling alone would let these pass: the syntax that 2.7 added,
numberless fields in format(), and the names of its library that a server is likely to reach for.
"""

import ast
import re
import sys

NEW_SYNTAX = {"Set": "set literal", "SetComp": "set comprehension",
              "DictComp": "dict comprehension"}
NEW_MODULES = ("argparse", "importlib", "sysconfig", "unittest2")
NEW_NAMES = ("OrderedDict", "Counter", "check_output", "total_ordering", "cmp_to_key",
             "dictConfig", "NullHandler", "viewkeys", "viewvalues", "viewitems", "bit_length",
             "total_seconds", "combinations_with_replacement", "memoryview",
             "assertIn", "assertNotIn", "assertIs", "assertIsNot", "assertIsNone",
             "assertIsNotNone", "assertIsInstance", "assertNotIsInstance", "assertGreater",
             "assertGreaterEqual", "assertLess", "assertLessEqual", "assertRaisesRegexp",
             "assertRegexpMatches", "assertItemsEqual", "assertMultiLineEqual",
             "assertListEqual", "assertDictEqual", "assertTupleEqual", "assertSetEqual",
             "assertSequenceEqual", "addCleanup", "skipTest", "skipIf", "skipUnless",
             "setUpClass", "tearDownClass", "setUpModule", "tearDownModule")
NUMBERLESS_FIELD = re.compile(r"(?<!\{)\{[!:}]")


def complaints(tree):
    for node in ast.walk(tree):
        line = getattr(node, "lineno", 0)
        kind = type(node).__name__
        if kind in NEW_SYNTAX:
            yield line, NEW_SYNTAX[kind]
        elif kind == "With":
            inner = node.body[0]
            if type(inner).__name__ == "With" and inner.lineno == line:
                yield line, "several managers in one with"
        elif kind in ("Import", "ImportFrom"):
            names = [alias.name for alias in node.names]
            modules = names
            if kind == "ImportFrom":
                modules = [node.module or ""]
            for name in modules:
                if name.split(".")[0] in NEW_MODULES:
                    yield line, name
            for name in names:
                if name in NEW_NAMES:
                    yield line, name
        elif kind == "Attribute":
            if node.attr in NEW_NAMES:
                yield line, node.attr
            if (node.attr == "format" and isinstance(node.value, ast.Str)
                    and NUMBERLESS_FIELD.search(node.value.s.replace("{{", ""))):
                yield line, "format field without a number"
        elif kind == "Name" and node.id in NEW_NAMES:
            yield line, node.id
        elif kind == "FunctionDef" and node.name in ("setUpClass", "setUpModule"):
            yield line, node.name


failed = 0
for path in sys.argv[1:]:
    source = open(path, "U")
    text = source.read()
    source.close()
    try:
        found = sorted(complaints(ast.parse(text, path)))
    except SyntaxError, error:
        found = [(error.lineno, error.msg)]
    for line, what in found:
        sys.stderr.write("%s:%s: not in Python 2.6: %s\n" % (path, line, what))
        failed = 1
sys.exit(failed)
