#include "tests/contract/contract.h"

#include "tests/support/fake_platform.h"

void reset_shared_memory() {
    fake::platform().reset();
}
