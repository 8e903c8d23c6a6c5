"""What the core costs a program that runs under it, beside other trace functions."""
