#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/platform_test.h"
#include "vexel.h"

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
    EXPECT_EQ(platform.messages(4), (std::vector<std::string>{"--> entry ", "<-- exit "}));
    vexel_free_2darray(nullptr, 3);
}

TEST_F(Memory, ArraysOfOddShapes) {
    const std::size_t half = SIZE_MAX / 2;
    const struct {
        const char* what;
        std::size_t rows, columns, element;
        bool possible;
    } rows[] = {
        {"no rows", 0, 4, 4, true},
        {"no columns", 2, 0, 4, true},
        {"one row overflows", 1, half, 3, false},
        {"the block overflows", half, 3, 1, false},
        {"the table overflows", half, 1, 0, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        void** table = vexel_alloc_2darray(row.rows, row.columns, row.element);
        EXPECT_EQ(table != nullptr, row.possible);
        if (row.possible) {
            EXPECT_EQ(table[0] == nullptr, row.rows == 0);
        }
        vexel_free_2darray(table, row.rows);
    }
}

TEST_F(Memory, AnArrayNeedsBothItsAllocations) {
    for (int n = 1; n <= 2; ++n) {
        const fake::AllocationScope scope;
        platform.fail(fake::Place::Allocation, n);
        EXPECT_EQ(vexel_alloc_2darray(2, 2, 4), nullptr);
        EXPECT_TRUE(platform.fault_fired(fake::Place::Allocation));
    }
}

TEST_F(Memory, ARefusedCopyLooksLikeADoneOne) {
    const struct {
        const char* what;
        bool destination, source;
        std::size_t count;
        bool copies;
    } rows[] = {
        {"fits", true, true, 4, true},
        {"one too many", true, true, 5, false},
        {"no destination", false, true, 4, false},
        {"no source", true, false, 4, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        platform.clear_lines();
        char room[6] = ".....";
        EXPECT_EQ(memcpy_safe(row.destination ? room : nullptr, 4, row.source ? "abcde" : nullptr,
                              row.count),
                  0);
        EXPECT_STREQ(room, row.copies ? "abcd." : ".....");
        std::vector<std::string> expected{" entry", " exit"};
        if (!row.copies) {
            expected.insert(expected.begin() + 1, " Invalid arguments");
        }
        EXPECT_EQ(platform.messages(4), expected);
    }
}

}  // namespace
