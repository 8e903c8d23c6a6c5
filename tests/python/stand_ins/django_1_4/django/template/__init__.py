import os

import django

__path__.extend([os.path.join(folder, 'template') for folder in django.__path__[1:]])

from django.template.base import Context, Template
