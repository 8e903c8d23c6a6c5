"""Languages that are implemented on top of Python, shown as their authors see them."""
