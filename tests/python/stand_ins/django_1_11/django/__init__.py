"""As much of Django as the hook for its templates looks at."""

# Whether nodes have themselves rendered, with their tokens; before, their lists do it, and they
# have sources.
HAS_TOKENS = True
