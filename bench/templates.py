"""What showing templates costs a program that renders them with Jinja2, and stops nowhere.

    ./morvik python -- bench/templates.py [ROUNDS]

It runs in the terminal with its templates shown or not, turn by turn, and times itself. The ratios
are of the least processor times.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile

TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PACKAGES = os.path.join(TOP, ".deps/programs/usr/lib/python2.7/dist-packages")
PROGRAM = """\
import resource
import jinja2
def used():
    return resource.getrusage(resource.RUSAGE_SELF)[0]
environment = jinja2.Environment(loader=jinja2.FileSystemLoader("."), autoescape=True)
def render():
    template = environment.get_template("page.html")
    for turn in range(60):
        template.render(items=range(100), title="<b>")
render()
begun = used()
render()
print "took %f" % (used() - begun)
"""
TEMPLATES = {
    "base.html": "<h1>{{ title }}</h1>\n{% block body %}{% endblock %}\n",
    "page.html": """\
{% extends "base.html" %}
{% macro cell(value) %}
  <td>{{ value }}</td>
{% endmacro %}
{% block body %}
  {% for item in items %}
    <tr>{{ cell(item) }}{{ cell(item * 2) }}{{ title|upper }}</tr>
    {% include "item.html" %}
  {% endfor %}
{% endblock %}
""",
    "item.html": "{% if item is divisibleby(3) %}\n{{ item }}\n{% endif %}\n",
    "other.html": "{{ title }}\n"}
# The terminal's options and commands, by what is measured.
WAYS = {
    "off": (["--no-templates"], []),
    "on": ([], []),
    "breakpoint elsewhere": ([], ["break other.html:1"])}


def run(folder, options, commands):
    """The seconds that the program says it took; None where it cannot import the engine."""
    launcher = os.environ.get("MORVIK_PYTHON_EXE") or os.readlink("/proc/self/exe")
    path = os.environ.get("PYTHONPATH", "").split(os.pathsep)
    if sys.version_info[:2] == (2, 7):
        path.append(PACKAGES)
    process = subprocess.Popen(
        [launcher, "-m", "sorrel.main", "terminal"] + options + ["--", "program.py"],
        cwd=folder, env=dict(os.environ, PYTHONPATH=os.pathsep.join(path)),
        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    out = process.communicate("\n".join(commands + ["continue", ""]))[0]
    found = re.search(r"took ([0-9.]+)", out)
    return found and float(found.group(1))


def measure(rounds):
    """Ratios to the time without, by the ways; None where the engine cannot be imported."""
    folder = tempfile.mkdtemp()
    try:
        for name in TEMPLATES:
            open(os.path.join(folder, name), "w").write(TEMPLATES[name])
        open(os.path.join(folder, "program.py"), "w").write(PROGRAM)
        least = {}
        for _ in range(rounds):
            for way in sorted(WAYS):
                took = run(folder, *WAYS[way])
                if took is None:
                    return None
                least[way] = min(took, least.get(way, took))
        return dict((way, least[way] / least["off"]) for way in WAYS)
    finally:
        shutil.rmtree(folder)


def main(arguments):
    ratios = measure(int(arguments[0]) if arguments else 7)
    if ratios is None:
        sys.stderr.write("Jinja2 cannot be imported\n")
        return 1
    for way in sorted(ratios):
        print "%-22s %.3f" % (way, ratios[way])
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
