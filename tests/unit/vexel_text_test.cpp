#include <cwchar>

#include "tests/support/platform_test.h"

namespace {

class Text : public PlatformTest {};

TEST_F(Text, WideCopiesArePaddedAndTerminatedBeyondTheirCount) {
    // room: of 7 characters
    for (const auto& [source, count, row_room, lines] :
         Rows<const wchar_t*, size_t, std::wstring, size_t>{{L"ab", 4, {L"ab\0\0\0..", 7}, 2},
                                                            {L"abcd", 4, {L"abcd\0..", 7}, 2},
                                                            {L"abcdef", 4, {L"abcd\0..", 7}, 2},
                                                            {L"ab", 0, {L"\0......", 7}, 0}}) {
        platform.clear_lines();
        std::wstring room(7, L'.');
        EXPECT_EQ(wcsncpy_safe(room.data(), source, count), room.data());
        EXPECT_EQ(room, row_room);
        EXPECT_EQ(platform.lines().size(), lines);
    }
    wchar_t room[] = L".";
    EXPECT_EQ(wcsncpy_safe(room, nullptr, 1), nullptr);
    EXPECT_EQ(wcsncpy_safe(nullptr, L"a", 1), nullptr);
    EXPECT_EQ(room[0], L'.');
}

TEST_F(Text, TrimsFixedSizeFields) {
    // told: the line about the terminator
    for (const auto& [what, row_field, result, told] :
         Rows<const char*, std::string, std::string, bool>{
             {"both ends", "  ab  ", {"ab\0\0\0\0", 6}, true},
             {"every kind of white space", " \t\n\v\f\rx \t", {"x\0\0\0\0\0\0\0\0", 9}, true},
             {"inside stays", "a b", "a b", true},
             {"zeros behind count as blank", {"ab \0\0 ", 6}, {"ab\0\0\0\0", 6}, true},
             {"zeros inside stay", {" a\0b", 4}, {"a\0b\0", 4}, true},
             {"zeros only: moved, rest left", {"  \0 ", 4}, {"\0 \0 ", 4}, false},
             {"256 blanks", std::string(256, ' ') + "\xE9", "\xE9" + std::string(256, '\0'), true},
         }) {
        platform.clear_lines();
        std::string field = row_field;
        StripLeadingTrailingSpace(field.data(), field.size());
        EXPECT_EQ(field, result);
        EXPECT_EQ(logged(2, "Terminated buffer with NULL"), told);
        EXPECT_EQ(platform.messages(4),
                  (Lines{"--> enter, hex dump --", "<-- exit, hex dump printed"}));
    }
}

TEST_F(Text, FieldsThatCannotBeTrimmed) {
    std::string blanks = "      ";
    StripLeadingTrailingSpace(blanks.data(), blanks.size());
    EXPECT_EQ(blanks, std::string("\0     ", 6));
    EXPECT_EQ(platform.messages(4).back(), "<-- All content are white space");

    StripLeadingTrailingSpace(nullptr, 4);
    StripLeadingTrailingSpace(blanks.data(), 0);
    EXPECT_EQ(platform.count_logged(2, "<-- Invalid parameter"), 2);

    std::string field = " a ";
    {
        const AllocationScope scope;
        platform.fail(Place::Allocation);
        StripLeadingTrailingSpace(field.data(), field.size());
    }
    EXPECT_EQ(field, " a ");
    EXPECT_TRUE(logged(2, "<-- vexel_alloc failed"));
}

TEST_F(Text, IdentifiersGetTheirDashes) {
    std::string room(30, '.');
    EXPECT_EQ(ConvertPPIDtoHRIFormat("ABCDEFGHIJKLMNOPQRSTUVW", room.data()), 0u);
    EXPECT_EQ(room, std::string("AB-CDEFGH-IJKLM-NOP-QRST-UVW\0.", 30));
    EXPECT_TRUE(logged(4, "PPID HRI format: AB-CDEFGH-IJKLM-NOP-QRST-UVW"));

    const char unterminated[] = {'A', 'B', '\0', 'D', 'E', 'F', 'G', 'H', 'I', 'J', 'K', 'L',
                                 'M', 'N', 'O',  'P', 'Q', 'R', 'S', 'T', 'U', 'V', 'W', 'X'};
    EXPECT_EQ(ConvertPPIDtoHRIFormat(unterminated, room.data()), 0u);
    EXPECT_EQ(room, std::string("AB-\0DEFGH-IJKLM-NOP-QRST-UVWX.", 30));

    EXPECT_EQ(ConvertPPIDtoHRIFormat(nullptr, room.data()), 0xFFFFFFFFu);
    EXPECT_EQ(ConvertPPIDtoHRIFormat(unterminated, nullptr), 0xFFFFFFFFu);
}

TEST_F(Text, FriendlyNamesComeFromThePlatform) {
    char* name = getFriendlyFQDDName(L"Fan.\x20AC");
    EXPECT_STREQ(name, "Friendly Fan.?");
    vexel_free(name);
    EXPECT_EQ(platform.messages(4), (Lines{"converting to friendly fqdd:Fan.?",
                                           "converted friendly fqdd is Friendly Fan.?"}));
    platform.clear_lines();
    EXPECT_EQ(getFriendlyFQDDName(nullptr), nullptr);
    EXPECT_TRUE(platform.lines().empty());

    platform.fail(Place::FriendlyName);
    EXPECT_EQ(getFriendlyFQDDName(L"Fan"), nullptr);
    EXPECT_EQ(platform.messages(4).back().find("Failed to convert to friendly fqdd line:"), 0u);

    const AllocationScope scope;
    platform.fail(Place::Allocation);
    EXPECT_EQ(getFriendlyFQDDName(L"Fan"), nullptr);
    EXPECT_TRUE(logged(4, "Failed to allocate memory for fqdd:Fan"));
}

}  // namespace
