"""The terminal front end: the standard debugger's commands over the service."""
