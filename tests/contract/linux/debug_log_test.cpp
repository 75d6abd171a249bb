#include "platform/debug_log.h"
#include "tests/support/linux_test.h"

#include <sys/socket.h>

namespace {

// What a child writes to standard error when its log is configured so; one entry for each write.
template <typename Body>
Lines writes_of(const char* sink, const char* level, Body body) {
    std::array<int, 2> ends{};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends.data()), 0);
    const pid_t child = in_child([&] {
        dup2(ends[1], STDERR_FILENO);
        sink != nullptr ? setenv("VEX_DEBUG_LOG", sink, 1) : unsetenv("VEX_DEBUG_LOG");
        level != nullptr ? setenv("VEX_DEBUG_LEVEL", level, 1) : unsetenv("VEX_DEBUG_LEVEL");
        body();
        return true;
    });
    close(ends[1]);
    Lines writes;
    std::array<char, 8192> packet{};
    for (ssize_t size; (size = recv(ends[0], packet.data(), packet.size(), 0)) > 0;) {
        writes.emplace_back(packet.data(), static_cast<size_t>(size));
    }
    close(ends[0]);
    EXPECT_TRUE(succeeded(child)) << "the child ended early";
    return writes;
}

TEST(DebugLog, LetsTheConfiguredLevelsPassToTheConfiguredSink) {
    for (const auto& [what, sink, row_level, passed] :
         Rows<const char*, const char*, const char*, Lines>{
             {"default level", "stderr", nullptr, {"1\n", "2\n"}},
             {"level of its own", "stderr", "4", {"1\n", "2\n", "3\n", "4\n"}},
             {"everything", "stderr", "99", {"1\n", "2\n", "3\n", "4\n", "5\n", "6\n"}},
             {"nothing", "stderr", "0", {}},
             {"a level that is none is the default", "stderr", "4x", {"1\n", "2\n"}},
             {"no sink", "none", "6", {}},
             {"the system log is the default", nullptr, "6", {}}}) {
        EXPECT_EQ(writes_of(sink, row_level,
                            [] {
                                for (int level = 1; level <= 6; ++level) {
                                    zentprintf(level, 15, "%d\n", level);
                                }
                            }),
                  passed);
    }
}

TEST(DebugLog, AMessageAboveTheLevelIsNotFormatted) {
    EXPECT_TRUE(writes_of("stderr", "2", [] {
                    int written = -1;
                    zentprintf(3, 15, "abc%n\n", &written);
                    if (written != -1) {
                        dprintf(STDERR_FILENO, "formatted");
                    }
                }).empty());
}

TEST(DebugLog, KeepsTheNewlineOfWhatItCutsOrCannotConvert) {
    const auto writes = writes_of("stderr", "2", [] {
        zentprintf(1, 15, "name=%ls.\n", L"\u00e9\u4e2d");  // no such characters in the "C" locale
        zentprintf(1, 15, "plain=%ls.\n", L"abc");
        zentprintf(1, 15, "%s\n", std::string(5000, 'x').c_str());
        zentprintf(1, 15, "%ls", L"\u4e2d");
    });
    ASSERT_EQ(writes.size(), 4u);
    EXPECT_EQ(writes[0], "name=?\n");
    EXPECT_EQ(writes[1], "plain=abc.\n");
    EXPECT_EQ(writes[2].find_first_not_of('x'), writes[2].size() - 1);
    EXPECT_GE(writes[2].size(), 1024u);
    EXPECT_EQ(writes[2].back(), '\n');
    EXPECT_EQ(writes[3], "?");
}

TEST(DebugLog, MessagesOfSeveralThreadsDoNotMix) {
    const auto writes = writes_of("stderr", "2", [] {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([thread] {
                for (int line = 0; line < 50; ++line) {
                    zentprintf(2, 15, "%s%d\n", "a line of thread ", thread);
                }
            });
        }
    });
    EXPECT_EQ(writes.size(), 200u);
    for (const std::string& line : writes) {
        EXPECT_EQ(line.size(), sizeof "a line of thread 0") << line;
    }
}

}  // namespace
