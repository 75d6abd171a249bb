// What the contract's tests need of each implementation besides the contract.
#ifndef TESTS_CONTRACT_CONTRACT_H
#define TESTS_CONTRACT_CONTRACT_H

// Shared memory as nobody wrote it yet.
void reset_shared_memory();

#endif  // TESTS_CONTRACT_CONTRACT_H
