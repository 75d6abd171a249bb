#include "tests/support/platform_test.h"

namespace {

class Memory : public PlatformTest {};

TEST_F(Memory, AnArrayIsZeroedContiguousRowsInOneBlock) {
    auto** rows = reinterpret_cast<uint16_t**>(vexel_alloc_2darray(3, 5, sizeof(uint16_t)));
    ASSERT_NE(rows, nullptr);
    for (int i = 0; i < 15; ++i) {
        EXPECT_EQ(rows[0][i], 0);
        rows[0][i] = static_cast<uint16_t>(i);
    }
    EXPECT_EQ(rows[1][0], 5);
    EXPECT_EQ(rows[2][4], 14);
    EXPECT_TRUE(platform.lines().empty());
    vexel_free_2darray(reinterpret_cast<void**>(rows), 3);
    EXPECT_EQ(platform.messages(4), (Lines{"--> entry ", "<-- exit "}));
    vexel_free_2darray(nullptr, 3);
}

TEST_F(Memory, ArraysOfOddShapes) {
    constexpr size_t kHalf = SIZE_MAX / 2;
    for (const auto& [rows, columns] : {std::pair{0u, 4u}, {2u, 0u}}) {
        void** table = vexel_alloc_2darray(rows, columns, 4);
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(table[0] == nullptr, rows == 0);
        vexel_free_2darray(table, rows);
    }
    EXPECT_EQ(vexel_alloc_2darray(1, kHalf, 3), nullptr) << "one row overflows";
    EXPECT_EQ(vexel_alloc_2darray(kHalf, 3, 1), nullptr) << "the block overflows";
    EXPECT_EQ(vexel_alloc_2darray(kHalf, 1, 0), nullptr) << "the table overflows";
    for (int n = 1; n <= 2; ++n) {
        const AllocationScope scope;
        platform.fail(Place::Allocation, n);
        EXPECT_EQ(vexel_alloc_2darray(2, 2, 4), nullptr) << "allocation " << n;
    }
}

TEST_F(Memory, ARefusedCopyLooksLikeADoneOne) {
    char room[6] = ".....";
    EXPECT_EQ(memcpy_safe(room, 4, "abcde", 5), 0);
    EXPECT_EQ(memcpy_safe(nullptr, 4, "abcde", 4), 0);
    EXPECT_EQ(memcpy_safe(room, 4, nullptr, 4), 0);
    EXPECT_STREQ(room, ".....");
    EXPECT_EQ(platform.count_logged(4, " Invalid arguments"), 3);
    platform.clear_lines();
    EXPECT_EQ(memcpy_safe(room, 4, "abcde", 4), 0);
    EXPECT_STREQ(room, "abcd.");
    EXPECT_EQ(platform.messages(4), (Lines{" entry", " exit"}));
}

}  // namespace
