from django.template.base import Context, Template
