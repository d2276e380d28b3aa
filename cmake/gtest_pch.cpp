// Compiles the test framework's header once for all test programs.
