#include "platform/shm.h"

#include <climits>

#include "tests/support/linux_test.h"

namespace {

class Shm : public testing::Test {
  protected:
    void SetUp() override { reset_shared_memory(); }
};

TEST_F(Shm, EachRegionHasItsSizeAndKeepsExactlyWhatIsWritten) {
    for (const auto& [region, size] :
         Rows<int, int>{{3, 23706}, {15, 65668}, {20, 325}, {26, 34132}, {49, 65668}, {55, 526}}) {
        Bytes expected(static_cast<size_t>(size), 0);
        const auto expect_all = [&, region = region, size = size] {
            Bytes bytes(static_cast<size_t>(size), 0xEE);
            EXPECT_EQ(Zent_shm_memread(region, bytes.data(), 0, size), 0);
            EXPECT_EQ(bytes, expected);
            const void* view = Zent_shm_get_shm(region);
            ASSERT_NE(view, nullptr);
            EXPECT_EQ(memcmp(view, expected.data(), expected.size()), 0);
        };
        expect_all();  // nobody wrote it: zeros
        for (const auto& [offset, count] : std::map<int, int>{
                 {0, 1}, {5, 4}, {13, 10}, {64, 128}, {200, size - 200}, {size - 3, 3}}) {
            const Bytes bytes(static_cast<size_t>(count), static_cast<uint8_t>(offset + 1));
            std::copy(bytes.begin(), bytes.end(), expected.begin() + offset);
            EXPECT_EQ(Zent_shm_memwrite(region, bytes.data(), offset, count), 0);
            expect_all();
            Bytes part(static_cast<size_t>(count) + 1, 0xEE);
            EXPECT_EQ(Zent_shm_memread(region, part.data(), offset, count), 0);
            EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), part.begin()));
            EXPECT_EQ(part.back(), 0xEE);
        }
    }
}

TEST_F(Shm, RefusesWhatIsNoRangeOfARegion) {
    for (const auto& [what, region, offset, count, accepted] :
         Rows<const char*, int, int, int, bool>{{"last byte", 20, 324, 1, true},
                                                {"nothing, at the end", 20, 325, 0, true},
                                                {"across the end", 20, 300, 26, false},
                                                {"negative offset", 20, -1, 1, false},
                                                {"negative count", 20, 0, -1, false},
                                                {"a sum that wraps", 20, INT_MAX, INT_MAX, false},
                                                {"no such region", 4, 0, 1, false}}) {
        uint8_t byte = 0xEE;
        EXPECT_EQ(Zent_shm_memread(region, &byte, offset, count) == 0, accepted);
        EXPECT_EQ(byte, accepted && count > 0 ? 0 : 0xEE);
    }
    EXPECT_NE(Zent_shm_memread(20, nullptr, 0, 1), 0);
    EXPECT_EQ(Zent_shm_get_shm(4), nullptr);
}

}  // namespace
