#include "tests/support/fake_platform.h"
#include "tests/support/linux_test.h"

void reset_shared_memory() {
    fake::platform().reset();
}
