"""The process that an editor starts: launches programs, attaches to them, passes messages on."""
