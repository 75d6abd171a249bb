#include <gtest/gtest.h>

#include <cwchar>

#include "tests/support/platform_test.h"
#include "vexel.h"

namespace {

class Text : public PlatformTest {};

TEST_F(Text, WideCopiesArePaddedAndTerminatedBeyondTheirCount) {
    const struct {
        const wchar_t* source;
        std::size_t count;
        std::wstring room;  // of 7 characters
        std::size_t lines;
    } rows[] = {
        {L"ab", 4, {L"ab\0\0\0..", 7}, 2},
        {L"abcd", 4, {L"abcd\0..", 7}, 2},
        {L"abcdef", 4, {L"abcd\0..", 7}, 2},
        {L"ab", 0, {L"\0......", 7}, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.source);
        platform.clear_lines();
        std::wstring room(7, L'.');
        EXPECT_EQ(wcsncpy_safe(room.data(), row.source, row.count), room.data());
        EXPECT_EQ(room, row.room);
        EXPECT_EQ(platform.lines().size(), row.lines);
    }
    wchar_t room[] = L".";
    EXPECT_EQ(wcsncpy_safe(room, nullptr, 1), nullptr);
    EXPECT_EQ(wcsncpy_safe(nullptr, L"a", 1), nullptr);
    EXPECT_EQ(room[0], L'.');
}

TEST_F(Text, TrimsFixedSizeFields) {
    const struct {
        const char* what;
        std::string field;
        std::string result;
        bool told;  // the line about the terminator
    } rows[] = {
        {"both ends", "  ab  ", {"ab\0\0\0\0", 6}, true},
        {"every kind of white space", " \t\n\v\f\rx \t", {"x\0\0\0\0\0\0\0\0", 9}, true},
        {"inside stays", "a b", "a b", true},
        {"zeros behind count as blank", {"ab \0\0 ", 6}, {"ab\0\0\0\0", 6}, true},
        {"zeros inside stay", {" a\0b", 4}, {"a\0b\0", 4}, true},
        {"zeros only: moved, rest left", {"  \0 ", 4}, {"\0 \0 ", 4}, false},
        {"256 blanks", std::string(256, ' ') + "\xE9", "\xE9" + std::string(256, '\0'), true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        platform.clear_lines();
        std::string field = row.field;
        StripLeadingTrailingSpace(field.data(), field.size());
        EXPECT_EQ(field, row.result);
        EXPECT_EQ(logged(2, "Terminated buffer with NULL"), row.told);
        EXPECT_EQ(platform.messages(4), (std::vector<std::string>{"--> enter, hex dump --",
                                                                  "<-- exit, hex dump printed"}));
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
        const fake::AllocationScope scope;
        platform.fail(fake::Place::Allocation);
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
    EXPECT_EQ(platform.messages(4),
              (std::vector<std::string>{"converting to friendly fqdd:Fan.?",
                                        "converted friendly fqdd is Friendly Fan.?"}));
    platform.clear_lines();
    EXPECT_EQ(getFriendlyFQDDName(nullptr), nullptr);
    EXPECT_TRUE(platform.lines().empty());

    platform.fail(fake::Place::FriendlyName);
    EXPECT_EQ(getFriendlyFQDDName(L"Fan"), nullptr);
    EXPECT_EQ(platform.messages(4).back().find("Failed to convert to friendly fqdd line:"), 0u);

    const fake::AllocationScope scope;
    platform.fail(fake::Place::Allocation);
    EXPECT_EQ(getFriendlyFQDDName(L"Fan"), nullptr);
    EXPECT_TRUE(logged(4, "Failed to allocate memory for fqdd:Fan"));
}

}  // namespace
