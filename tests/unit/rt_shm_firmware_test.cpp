#include <gtest/gtest.h>

#include "tests/support/backplane_test.h"

namespace {

class BackplaneFirmware : public BackplaneTest {};

TEST_F(BackplaneFirmware, AVersionIsKeptPerBayAndReadAsFourCharacters) {
    const struct {
        unsigned major, minor;
        const char* text;
    } rows[] = {{1, 5, "1.05"}, {0x1A, 3, "1a.0"}, {0x1FF, 0xFFFF, "ff.f"}, {0, 0, "0.00"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const auto major = static_cast<std::uint8_t>(row.major);
        const auto minor = static_cast<std::uint8_t>(row.minor);
        EXPECT_EQ(RTSHM_setBpFwVersion(4, row.major, row.minor), 0u);
        EXPECT_EQ(table_bytes(16 * 4 + 9, 4), (Bytes{0, major, minor, 0}));
        std::uint8_t got_major = 0xEE, got_minor = 0xEE;
        EXPECT_EQ(RTSHM_getBpFwVersion(4, &got_major, nullptr), 2u);
        EXPECT_EQ(got_major, 0xEE);
        EXPECT_EQ(RTSHM_getBpFwVersion(4, &got_major, &got_minor), 0u);
        EXPECT_EQ(got_major, major);
        EXPECT_EQ(got_minor, minor);
        std::uint32_t word = 0;
        EXPECT_EQ(RTSHM_ReadBpFwVersion(4, &word), 0u);
        EXPECT_EQ(std::memcmp(&word, row.text, 4), 0);
    }
    EXPECT_TRUE(logged(4, "bpFwRev:1a.0 tmpBuf=1a.03"));
    EXPECT_TRUE(logged(4, "Fw Version:   1a.3"));
}

TEST_F(BackplaneFirmware, BaysOutsideTheTableAreRefused) {
    std::uint8_t byte = 0xEE;
    std::uint32_t word = 0xEEEEEEEE;
    EXPECT_EQ(RTSHM_setBpFwVersion(5, 1, 1), 2u);
    EXPECT_EQ(table_bytes(0, 4148), Bytes(4148, 0));
    EXPECT_EQ(RTSHM_getBpFwVersion(5, &byte, &byte), 2u);
    EXPECT_EQ(byte, 0xEE);
    EXPECT_EQ(RTSHM_ReadBpFwVersion(4, nullptr), 2u);
    for (const unsigned bay : {259u, 0x10000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(RTSHM_ReadBpFwVersion(bay, &word), 2u) << bay;
    }
    EXPECT_EQ(word, 0xEEEEEEEE);
    sNVMeSSDBPInfo.slots[0].driveState = 0x0203;
    EXPECT_EQ(RTSHM_ReadBpFwVersion(5, &word), 0u) << "reads on behind the bays";
    EXPECT_EQ(std::memcmp(&word, "3.02", 4), 0);
    EXPECT_EQ(RTSHM_ReadBpFwVersion(258, &word), 0u);
}

}  // namespace
