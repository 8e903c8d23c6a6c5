"""What the network thread and a stopped thread both use."""
