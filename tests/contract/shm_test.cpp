#include "platform/shm.h"

#include <algorithm>
#include <climits>

#include "tests/contract/contract.h"
#include "tests/support/linux_test.h"

namespace {

const struct Region {
    int id;
    int size;
} kRegions[] = {{3, 23706}, {15, 65668}, {20, 325}, {26, 34132}, {49, 65668}, {55, 526}};

class Shm : public testing::Test {
  protected:
    void SetUp() override { reset_shared_memory(); }
};

Bytes read_whole(const Region& region) {
    Bytes bytes(static_cast<size_t>(region.size), 0xEE);
    EXPECT_EQ(Zent_shm_memread(region.id, bytes.data(), 0, region.size), 0);
    return bytes;
}

TEST_F(Shm, ARegionNobodyWroteReadsAsZeros) {
    for (const Region& region : kRegions) {
        SCOPED_TRACE(region.id);
        const Bytes zeros(static_cast<size_t>(region.size), 0);
        EXPECT_EQ(read_whole(region), zeros);
        const void* view = Zent_shm_get_shm(region.id);
        ASSERT_NE(view, nullptr);
        EXPECT_EQ(memcmp(view, zeros.data(), zeros.size()), 0);
    }
}

TEST_F(Shm, RefusesWhatIsNoRangeOfARegion) {
    for (const auto& [what, region, offset, count, accepted] :
         Rows<const char*, int, int, int, bool>{{"last byte", 20, 324, 1, true},
                                                {"nothing, at the end", 20, 325, 0, true},
                                                {"behind the end", 20, 325, 1, false},
                                                {"across the end", 20, 300, 26, false},
                                                {"negative offset", 20, -1, 1, false},
                                                {"negative count", 20, 0, -1, false},
                                                {"far behind the end", 20, INT_MAX, 1, false},
                                                {"a sum that wraps", 20, INT_MAX, INT_MAX, false},
                                                {"no such region", 4, 0, 1, false},
                                                {"no such region", -1, 0, 1, false}}) {
        uint8_t byte = 0xEE;
        EXPECT_EQ(Zent_shm_memread(region, &byte, offset, count) == 0, accepted);
        EXPECT_EQ(byte, accepted && count > 0 ? 0 : 0xEE);
    }
    EXPECT_NE(Zent_shm_memread(20, nullptr, 0, 1), 0);
    EXPECT_EQ(Zent_shm_get_shm(4), nullptr);
}

TEST_F(Shm, WritesExactlyTheRange) {
    std::mt19937 random{20};
    const auto below = [&](int limit) {
        return static_cast<int>(random() % static_cast<unsigned>(limit));
    };
    for (const Region& region : kRegions) {
        SCOPED_TRACE(region.id);
        Bytes expected(static_cast<size_t>(region.size), 0);
        for (int round = 0; round < 60; ++round) {
            const int offset = round % 2 == 0 ? below(region.size) : region.size - 1 - below(40);
            const int count =
                std::min(region.size - offset, round % 3 == 0 ? below(region.size) : below(12));
            Bytes bytes(static_cast<size_t>(count) + 1);
            std::ranges::generate(bytes, random);
            std::copy_n(bytes.begin(), count, expected.begin() + offset);
            ASSERT_EQ(Zent_shm_memwrite(region.id, bytes.data(), offset, count), 0);
            ASSERT_EQ(read_whole(region), expected) << offset << " + " << count;

            Bytes part(static_cast<size_t>(count) + 1, 0xEE);
            ASSERT_EQ(Zent_shm_memread(region.id, part.data(), offset, count), 0);
            EXPECT_TRUE(std::equal(bytes.begin(), bytes.end() - 1, part.begin()));
            EXPECT_EQ(part.back(), 0xEE);
        }
    }
}

}  // namespace
