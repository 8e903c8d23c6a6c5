int words(void) { return 2; }
