"""What a client asks of a thread that has stopped, answered in that thread."""
