"""What each process of the debugger may use, in any thread: nothing here knows of the core."""
