"""What the adapter and a debugged program share: messages, tokens, the way to each other."""
