import os

from django.conf import settings
from django.template.base import Origin, Template


def get_template(name):
    path = os.path.join(settings.TEMPLATE_DIRS[0], name)
    source = open(path).read().decode('utf-8')
    return Template(source, Origin(path, source), name)
