#include "tests/support/platform_test.h"

namespace {

class Memory : public PlatformTest {};

TEST_F(Memory, AnArrayIsZeroedContiguousRowsInOneBlock) {
    auto** rows = reinterpret_cast<uint16_t**>(vexel_alloc_2darray(3, 5, sizeof(uint16_t)));
    ASSERT_NE(rows, nullptr);
    EXPECT_TRUE(std::all_of(rows[0], rows[0] + 15, [](uint16_t cell) { return cell == 0; }));
    std::iota(rows[0], rows[0] + 15, uint16_t{0});
    EXPECT_EQ(rows[1][0], 5);
    EXPECT_EQ(rows[2][4], 14);
    vexel_free_2darray(reinterpret_cast<void**>(rows), 3);
    vexel_free_2darray(nullptr, 3);
    vexel_free_2darray(vexel_alloc_2darray(0, 4, 4), 0);
    EXPECT_EQ(vexel_alloc_2darray(1, SIZE_MAX / 2, 3), nullptr) << "one row overflows";
    EXPECT_EQ(vexel_alloc_2darray(SIZE_MAX / 2, 3, 1), nullptr) << "the block overflows";
}

TEST_F(Memory, ARefusedCopyLooksLikeADoneOne) {
    char room[6] = ".....";
    EXPECT_EQ(memcpy_safe(room, 4, "abcde", 4), 0);
    EXPECT_EQ(memcpy_safe(room, 3, "12345", 4), 0);
    EXPECT_EQ(memcpy_safe(nullptr, 4, "12345", 4), 0);
    EXPECT_EQ(memcpy_safe(room, 4, nullptr, 4), 0);
    EXPECT_STREQ(room, "abcd.");
}

}  // namespace
