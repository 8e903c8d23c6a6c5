from django.template.base import Library
