#include "tests/support/backplane_test.h"

namespace {

class BackplaneFirmware : public BackplaneTest {};

TEST_F(BackplaneFirmware, AVersionIsKeptPerBayAndReadAsFourCharacters) {
    uint8_t major = 0, minor = 0;
    uint32_t word = 0;
    EXPECT_EQ(RTSHM_setBpFwVersion(4, 0x11A, 3), 0u);
    EXPECT_EQ(RTSHM_getBpFwVersion(4, &major, &minor), 0u);
    EXPECT_EQ(table_bytes(16 * 4 + 9, 4), (Bytes{0, major, minor, 0}));
    EXPECT_EQ(RTSHM_ReadBpFwVersion(4, &word), 0u);
    EXPECT_EQ(std::memcmp(&word, "1a.0", 4), 0);
    EXPECT_EQ(RTSHM_setBpFwVersion(5, 1, 1), 2u);
    EXPECT_EQ(RTSHM_getBpFwVersion(5, &major, &minor), 2u);
    EXPECT_EQ(RTSHM_ReadBpFwVersion(4, nullptr), 2u);
    EXPECT_EQ(RTSHM_ReadBpFwVersion(259, &word), 2u);
    sNVMeSSDBPInfo.slots[0].driveState = 0x0203;
    EXPECT_EQ(RTSHM_ReadBpFwVersion(5, &word), 0u) << "reads on behind the bays";
    EXPECT_EQ(std::memcmp(&word, "3.02", 4), 0);
}

}  // namespace
