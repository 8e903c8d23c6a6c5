"""Stands in for Zope's page templates: as much as the tests need, with the same surface."""
