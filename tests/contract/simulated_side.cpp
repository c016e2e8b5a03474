// The simulated side of the contract tests.
