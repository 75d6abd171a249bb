#include "platform/linux/shm_admin.h"
#include "tests/support/linux_test.h"

void reset_shared_memory() {
    EXPECT_EQ(vexplatform_shm_remove_all(), 0);
}

namespace {

// The tests' regions are their own and do not outlive them.
class OwnNamespace : public testing::Environment {
    void SetUp() override {
        setenv("VEX_SHM_NAMESPACE", ("vextest-" + std::to_string(getpid())).c_str(), 1);
    }
    void TearDown() override { reset_shared_memory(); }
};

[[maybe_unused]] const auto* const environment =
    testing::AddGlobalTestEnvironment(new OwnNamespace);

}  // namespace
