"""Processes beside each other: what a child is given, and that none outlives its user."""
