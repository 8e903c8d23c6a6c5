"""The templates of the bills."""
