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

class Text : public PlatformTest {};

TEST_F(Text, WideCopiesArePaddedAndTerminatedBeyondTheirCount) {
    // room: of 7 characters
    for (const auto& [source, count, row_room] :
         Rows<const wchar_t*, size_t, std::wstring>{{L"ab", 4, {L"ab\0\0\0..", 7}},
                                                    {L"abcdef", 4, {L"abcd\0..", 7}},
                                                    {L"ab", 0, {L"\0......", 7}}}) {
        std::wstring room(7, L'.');
        EXPECT_EQ(wcsncpy_safe(room.data(), source, count), room.data());
        EXPECT_EQ(room, row_room);
    }
    EXPECT_EQ(wcsncpy_safe(nullptr, L"a", 1), nullptr);
}

TEST_F(Text, TrimsFixedSizeFields) {
    for (const auto& [what, row_field, result] : Rows<const char*, std::string, std::string>{
             {"blanks only", "   ", {"\0  ", 3}},
             {"zeros only: moved, rest left", {"  \0 ", 4}, {"\0 \0 ", 4}},
             {"zeros behind count as blank", {"ab \0\0 ", 6}, {"ab\0\0\0\0", 6}},
             {"zeros inside stay", {" a\0b", 4}, {"a\0b\0", 4}},
             {"every kind of white space", " \t\n\v\f\rx \t", {"x\0\0\0\0\0\0\0\0", 9}}}) {
        std::string field = row_field;
        StripLeadingTrailingSpace(field.data(), field.size());
        EXPECT_EQ(field, result);
    }
    StripLeadingTrailingSpace(nullptr, 4);
}

TEST_F(Text, IdentifiersGetTheirDashes) {
    const std::string field{"AB\0DEFGHIJKLMNOPQRSTUVWX", 24};  // all of it, whatever it holds
    std::string room(30, '.');
    EXPECT_EQ(ConvertPPIDtoHRIFormat(field.data(), room.data()), 0u);
    EXPECT_EQ(room, std::string("AB-\0DEFGH-IJKLM-NOP-QRST-UVWX.", 30));
}

TEST_F(Text, FriendlyNamesComeFromThePlatform) {
    char* name = getFriendlyFQDDName(L"Fan.\x20AC");
    EXPECT_STREQ(name, "Friendly Fan.?");
    vexel_free(name);
}

class Flags : public PlatformTest {
  protected:
    Flags() {
        vexutils::FlagPaths& flags = vexutils::flag_paths;
        flags.hba_disabled = flags.tavi_disabled = flag_.c_str();
        flags.tavi_poll = flags.dump_request = flag_.c_str();
    }
    const std::string flag_ = path("flag");
};

TEST_F(Flags, AFileSwitchesTheInventoryOffAndGrantsOneDump) {
    for (const unsigned off : {1u, 0u}) {
        EXPECT_EQ(IsvexelHBAInventoryDisabled(), off) << "0 while the file exists";
        EXPECT_EQ(IsvexelTAVIInventoryDisabled(), off);
        EXPECT_EQ(IsDumpEnabled(), 1 - off);
        write_file(flag_, "");
    }
    EXPECT_EQ(IsDumpEnabled(), 1u);
    EXPECT_EQ(IsDumpEnabled(), 0u) << "taken back when granted";
}

TEST_F(Flags, ThePollingFileGivesTwoNumbersOrNone) {
    int first = 8, second = 9;
    EXPECT_EQ(IsstressTAVIPollEnabled(&first, &second), 0u);
    write_file(flag_, "2 7");
    EXPECT_EQ(IsstressTAVIPollEnabled(&first, &second), 1u);
    EXPECT_EQ(10 * first + second, 27);
    write_file(flag_, "5");
    EXPECT_EQ(IsstressTAVIPollEnabled(&first, &second), 1u);
    EXPECT_EQ(10 * first + second, 3);
}

TEST_F(Flags, SleepsUntilTheCallbackSaysStop) {
    static int calls_left;
    calls_left = 2;
    vexel_sleep(0, 5, [] { return --calls_left; });
    EXPECT_EQ(calls_left, 0) << "stopped after the call that returned 0";
}

class IpmiIdentify : public PlatformTest {};

TEST_F(IpmiIdentify, SendsTwentyBytes) {
    EXPECT_EQ(BlinkPCIeSSD(2, 5), 0u);
    EXPECT_EQ(UnBlinkPCIeSSD(0x102, 0x1FF, 0x0102), 0u);
    EXPECT_EQ(
        platform.ipmi_requests,
        (std::vector<Bytes>{
            {0x30, 0xD5, 0, 0x14, 0x0E, 0, 0, 0, 0x0E, 0, 2, 5, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0},
            {0x30, 0xD5, 0, 0x14, 0x0E, 0, 0, 0, 0x0E, 0, 2, 0xFF, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0}}));
    platform.ipmi_result = 0x2C1;  // the low byte is the completion
    EXPECT_EQ(BlinkPCIeSSD(1, 7), 1u);
    EXPECT_EQ(UnBlinkPCIeSSD(1, 7, 0), 1u);
}

}  // namespace
