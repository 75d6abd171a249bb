#include "tests/support/platform_test.h"

namespace {

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
    EXPECT_EQ(ConvertPPIDtoHRIFormat(nullptr, room.data()), 0xFFFFFFFFu);
    EXPECT_EQ(ConvertPPIDtoHRIFormat(field.data(), nullptr), 0xFFFFFFFFu);
}

TEST_F(Text, FriendlyNamesComeFromThePlatform) {
    char* name = getFriendlyFQDDName(L"Fan.\x20AC");
    EXPECT_STREQ(name, "Friendly Fan.?");
    vexel_free(name);
    EXPECT_EQ(getFriendlyFQDDName(nullptr), nullptr);
}

}  // namespace
