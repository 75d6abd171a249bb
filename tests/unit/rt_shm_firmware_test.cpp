#include "tests/support/backplane_test.h"

namespace {

class BackplaneFirmware : public BackplaneTest {};

TEST_F(BackplaneFirmware, AVersionIsKeptPerBayAndReadAsFourCharacters) {
    const Rows<unsigned, unsigned, const char*> rows{
        {1, 5, "1.05"}, {0x1A, 3, "1a.0"}, {0x1FF, 0xFFFF, "ff.f"}, {0, 0, "0.00"}};
    uint8_t got[2] = {};
    uint32_t word = 0;
    for (const auto& [major, minor, row_text] : rows) {
        SCOPED_TRACE(row_text);
        EXPECT_EQ(RTSHM_setBpFwVersion(4, major, minor), 0u);
        EXPECT_EQ(RTSHM_getBpFwVersion(4, &got[0], &got[1]), 0u);
        EXPECT_EQ(table_bytes(16 * 4 + 9, 4), (Bytes{0, got[0], got[1], 0}));
        EXPECT_EQ(RTSHM_ReadBpFwVersion(4, &word), 0u);
        EXPECT_EQ(std::memcmp(&word, row_text, 4), 0);
    }
    EXPECT_TRUE(logged(4, "bpFwRev:1a.0 tmpBuf=1a.03"));
    EXPECT_TRUE(logged(4, "Fw Version:   1a.3"));

    sNVMeSSDBPInfo.slots[0].driveState = 0x0203;
    const Bytes table = table_bytes(0, 4148);
    got[0] = got[1] = 0xEE;
    EXPECT_EQ(RTSHM_setBpFwVersion(5, 1, 1), 2u);
    EXPECT_EQ(RTSHM_getBpFwVersion(5, &got[0], &got[1]), 2u);
    EXPECT_EQ(RTSHM_getBpFwVersion(4, &got[0], nullptr), 2u);
    EXPECT_EQ(RTSHM_getBpFwVersion(4, nullptr, &got[1]), 2u);
    EXPECT_EQ(got[0] & got[1], 0xEE);
    EXPECT_EQ(RTSHM_ReadBpFwVersion(4, nullptr), 2u);
    EXPECT_EQ(RTSHM_ReadBpFwVersion(258, &word), 0u) << "the last bytes of the table";
    EXPECT_EQ(RTSHM_ReadBpFwVersion(5, &word), 0u) << "reads on behind the bays";
    for (const unsigned bay : {259u, 0x10000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(RTSHM_ReadBpFwVersion(bay, &word), 2u) << bay;
    }
    EXPECT_EQ(std::memcmp(&word, "3.02", 4), 0);
    EXPECT_EQ(table_bytes(0, 4148), table);
}

}  // namespace
