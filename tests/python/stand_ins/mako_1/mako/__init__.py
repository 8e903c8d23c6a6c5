"""As much of Mako as its hook looks at: templates are made into modules that say their lines."""

# Where they are said: in a map at the end of the module, or in comments.
HAS_MAP = True
