"""The process of a person at a terminal, for a program that runs elsewhere."""
