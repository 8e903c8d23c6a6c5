"""Renders the templates in a folder. usage: render.py FOLDER NAME..."""

import sys

import jinja2


class Person(object):

    def __init__(self, name, age):
        self.name = name
        self.age = age

    @property
    def nick(self):
        return self.name.nick

    def __getitem__(self, key):
        return {"town": "Ghent"}[key]


def main(folder, names):
    environment = jinja2.Environment(
        loader=jinja2.FileSystemLoader(folder), extensions=["jinja2.ext.loopcontrols"])
    people = [Person("Ada", 36), Person("Bob", None)]
    for name in names:
        template = environment.get_template(name)
        print template.render(people=people, numbers=iter(range(5)), nothing=[])


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2:])
