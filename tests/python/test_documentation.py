"""docs/core.md is true to the module, docs/architecture.md to the imports of the server."""

import os
import re

import harness
from harness import core
from method_table import FUNCTIONS

TOP = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")
REFERENCE = os.path.join(TOP, "docs/core.md")
ROW = re.compile(r"^\| `(\w+)\(([^`]*)\)` \| (\*loose\*)?")
IMPORT = re.compile(r"^\s*from (sorrel[\w.]*) import", re.MULTILINE)
ANY_IMPORT = re.compile(r"^\s*(?:import|from \S+ import) ", re.MULTILINE)
REFUSED = re.compile(r"takes exactly (\d+) argument")


class ReferenceTest(harness.CoreTestCase):

    def documented(self):
        """(name, number of arguments, whether it is said not to look) of each row, in order."""
        rows = []
        for line in open(REFERENCE):
            row = ROW.match(line)
            if row:
                names = [name for name in row.group(2).split(", ") if name]
                rows.append((row.group(1), len(names), row.group(3) is not None))
        return rows

    def taken(self, name):
        """How many arguments a function takes, and whether it takes more, too."""
        function = getattr(core, name)
        core.stop()     # the calling thread is known
        own_id = core.get_current_tstate_id()
        try:
            function(*[own_id] * 20)
        except TypeError, error:
            refused = REFUSED.search(str(error))
            if refused:
                return int(refused.group(1)), False
        for number in range(20):
            core.stop()
            try:
                function(*[own_id] * number)
            except IndexError:
                continue
            except Exception:
                pass
            return number, True

    def test_every_function_has_its_row(self):
        self.assertEqual(sorted([row[0] for row in self.documented()]),
                         sorted([name for name, doc in FUNCTIONS]))

    def test_arguments_are_as_many_as_the_function_takes(self):
        self.server.init()
        wrong = []
        for name, number, is_loose in self.documented():
            if name != "__import__" and (number, is_loose) != self.taken(name):
                wrong.append((name, number, is_loose) + self.taken(name))
            core.set_import_cb(None)
        core.stop_trace()
        self.assertEqual(wrong, [])

    def test_callbacks_of_init_are_described(self):
        text = open(REFERENCE).read()
        for name in harness.INIT_ARGUMENTS[2:]:
            self.assert_in("`%s`" % name, text)


class RoomsTest(harness.TestCase):

    def documented(self):
        """The rooms that each room may import, by its name."""
        rooms = {}
        lines = open(os.path.join(TOP, "docs/architecture.md")).read().splitlines()
        for line in lines[lines.index("| room | runs in | what it holds | imports |") + 2:]:
            if not line.startswith("|"):
                return rooms
            cells = line.split("|")
            rooms[cells[1].strip(" `")] = re.findall(r"`([\w.]+)`", cells[4])

    def imported(self):
        """The same as the files have it."""
        rooms = {}
        server = os.path.join(TOP, "sorrel")
        for folder, _, names in os.walk(server):
            room = os.path.relpath(folder, server).replace(os.sep, ".").strip(".") or "sorrel"
            files = [name for name in names if name.endswith(".py")]
            for name in files:
                for module in IMPORT.findall(open(os.path.join(folder, name)).read()):
                    path = os.path.join(server, *module.split(".")[1:])
                    found = module if os.path.isdir(path) else module.rpartition(".")[0]
                    rooms.setdefault(room, set()).add(found.replace("sorrel.", "", 1))
            if files:
                rooms.setdefault(room, set()).discard(room)
        return rooms

    def test_rooms_import_what_the_table_says(self):
        self.assertEqual(dict((room, sorted(names)) for room, names in self.imported().items()),
                         dict((room, sorted(names)) for room, names in self.documented().items()))

    def test_imports_are_looked_for_where_they_are(self):
        """Not in the own package first, which every new program would wait for."""
        lacking = []
        for folder, _, names in os.walk(os.path.join(TOP, "sorrel")):
            for name in names:
                path = os.path.join(folder, name)
                if name.endswith(".py") and ANY_IMPORT.search(open(path).read()) \
                        and "from __future__ import absolute_import\n" not in open(path).read():
                    lacking.append(path)
        self.assertEqual(lacking, [])

    def test_no_arrow_comes_back(self):
        left = self.documented()
        while left:
            ends = [room for room, names in left.items() if not set(names) & set(left)]
            self.assert_(ends, "in a circle: %s" % ", ".join(sorted(left)))
            for room in ends:
                del left[room]
