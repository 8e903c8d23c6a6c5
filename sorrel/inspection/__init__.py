"""Looking at the program where it has stopped: frames, stacks, values, sources, evaluation."""
