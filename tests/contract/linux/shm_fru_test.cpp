

#include "platform/shm.h"
#include "tests/support/linux_test.h"

namespace {

// Two cards of the FRU table in bytes: ids 0x0102 and 0x0203, types 4 and 17.
constexpr std::array<uint8_t, 39> kTable{
    0,    0,    0, 0, 0,  0,    2,    0, 0,                     // two entries
    0x02, 0x01, 0, 0, 4,  0x00, 0x01, 0, 0, 0, 0, 0, 0, 0, 0,   // information at 256
    0x03, 0x02, 0, 0, 17, 0x00, 0x02, 0, 0, 0, 0, 0, 0, 0, 0};  // information at 512
// device_presence, device_id, fru_rev, slotNumber, device_type, -, size 5, offset 1024,
// embeddedDevice
constexpr std::array<uint8_t, 15> kInfo{1, 0x34, 0x12, 2, 5, 6, 0, 5, 0, 0x00, 0x04, 0, 0, 9, 0};
constexpr std::array<uint8_t, 5> kData{'F', 'R', 'U', '-', '1'};

void put(int offset, const void* bytes, size_t count) {
    ASSERT_EQ(Zent_shm_memwrite(ZENT_SHM_FRU_TABLE, bytes, offset, static_cast<int>(count)), 0);
}

class LinuxFru : public testing::Test {
  protected:
    void SetUp() override {
        reset_shared_memory();
        put(0, kTable.data(), kTable.size());
        put(256, kInfo.data(), kInfo.size());
        put(1024, kData.data(), kData.size());
    }

    // Whether the information, and all data, of the first card can be read.
    bool information() { return Zent_shm_get_fruinfo(0x0102, info_.data(), &kTable[9], 0) == 0; }
    bool data() { return Zent_shm_get_frudata(0x0102, data_.data(), 5) == 0; }

    std::array<uint8_t, 15> info_{};
    std::array<uint8_t, 64> data_{};
};

TEST_F(LinuxFru, ReadsWhatTheTableLeadsToAndNoOtherCard) {
    ASSERT_TRUE(information());
    EXPECT_EQ(info_, kInfo);
    ASSERT_TRUE(data());
    EXPECT_EQ(memcmp(data_.data(), kData.data(), kData.size()), 0);
    EXPECT_NE(Zent_shm_get_fruinfo(0x0102, info_.data(), &kTable[24], 0), 0) << "another's entry";
    EXPECT_NE(Zent_shm_get_frudata(0x0909, data_.data(), 1), 0);
}

TEST_F(LinuxFru, FollowsNoOffsetIntoTheTableOrOutOfTheRegion) {
    for (const auto& [what, at, bytes, row_information, row_data] :
         Rows<const char*, int, Bytes, bool, bool>{
             {"no entries", 6, {0, 0}, false, false},
             {"more entries than fit: they take up all", 6, {0xFF, 0xFF}, false, false},
             {"information in the table", 14, {38, 0, 0, 0}, false, false},
             {"information across the end", 14, {0x76, 0, 1, 0}, false, false},
             {"data in the table", 256 + 9, {38, 0, 0, 0}, true, false},
             {"data right behind the table", 256 + 9, {39, 0, 0, 0}, true, true},
             {"data across the end", 256 + 9, {0x80, 0, 1, 0}, true, false},
             {"less data than asked for", 256 + 7, {4, 0}, true, false}}) {
        SetUp();
        put(at, bytes.data(), bytes.size());
        EXPECT_EQ(information(), row_information);
        EXPECT_EQ(data(), row_data);
    }
}

}  // namespace
