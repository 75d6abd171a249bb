#include <ctime>
#include <sstream>

#include "internal/log.h"
#include "internal/vexel_state.h"
#include "tests/support/platform_test.h"

using vexutils::Level;

namespace {

class TraceLog : public PlatformTest {
  protected:
    std::string file() const { return file_content(pRTLogPath); }

    // The file's messages, without their prefixes.
    Lines messages() const {
        Lines result;
        std::istringstream lines{file()};
        for (std::string line; std::getline(lines, line);) {
            result.push_back(line.substr(line.find("] ") + 2));
        }
        return result;
    }

    // What hexdump sent to the debug log.
    std::string dumped() const {
        std::string text;
        for (const fake::LogLine& line : platform.lines()) {
            EXPECT_EQ(line.level, 4);
            EXPECT_EQ(line.module, 15);
            text += line.text;
        }
        return text;
    }
};

std::string now_as_prefix() {
    const std::time_t now = std::time(nullptr);
    char text[30];
    std::strftime(text, sizeof(text), "%m-%d %H:%M:%S", std::localtime(&now));
    return text;
}

TEST_F(TraceLog, ALineReachesBothSinksWithItsArgumentsEvaluatedOnce) {
    use_log_file();
    int evaluated = 0;
    errno = 77;
    const std::string before = now_as_prefix();
    const int line_number = __LINE__ + 1;
    LOG(Level::Trace, "%s%s %d", "--> enter", __func__, ++evaluated);
    const int errno_after = errno;
    const std::string after = now_as_prefix();
    EXPECT_EQ(errno_after, 77);
    EXPECT_EQ(evaluated, 1);
    ASSERT_EQ(platform.lines().size(), 1u);
    EXPECT_EQ(platform.lines()[0].module, 15);
    const std::string place =
        "vexel_log_test.cpp:TestBody:" + std::to_string(line_number) + ":--> enterTestBody 1\n";
    EXPECT_EQ(platform.lines()[0].text, place);
    EXPECT_TRUE(logged(4, "--> enterTestBody 1"));
    char thread[20];
    snprintf(thread, sizeof(thread), "(T:%08X) ", static_cast<unsigned>(pthread_self()));
    const std::string rest = " [TestBody] --> enterTestBody 1\n";
    const std::string line = file();
    EXPECT_TRUE(line == thread + before + rest || line == thread + after + rest) << line;
}

TEST_F(TraceLog, EveryThousandthLineStartsTheFileAfresh) {
    use_log_file();
    platform.record_lines(false);
    int number = 0;
    for (const auto& [lines, in_file] : {std::pair{1000, 1000u}, {1, 1u}, {999, 1000u}, {1, 1u}}) {
        for (int i = 0; i < lines; ++i) {
            LOG(Level::Trace, "line %d", ++number);
        }
        ASSERT_EQ(messages().size(), in_file) << "after " << number;
        EXPECT_EQ(messages().back(), "line " + std::to_string(number));
    }
}

TEST_F(TraceLog, TheFirstLookAtTheFlagFileHoldsForGood) {
    const std::string flag = path("flag");
    vexutils::flag_paths.log_disabled = flag.c_str();
    for (const bool present : {true, false}) {
        SCOPED_TRACE(present);
        vexutils::log_state.file = vexutils::LogFile::NotChecked;
        platform.clear_lines();
        if (present) {
            write_file(flag, "");
        }
        const unsigned answer = present ? 1 : 2;
        EXPECT_EQ(IsvexelLogDisabled(), answer);
        present ? static_cast<void>(remove(flag.c_str())) : write_file(flag, "");
        EXPECT_EQ(IsvexelLogDisabled(), answer);
        LOG(Level::Trace, "%s", "text");
        hexdump("A", 1);
        EXPECT_TRUE(logged(4, "text"));
        EXPECT_EQ(platform.lines().size(), present ? 1u : 2u) << "a dump follows the flag too";
        EXPECT_EQ(messages().size(), present ? 0u : 2u);
    }
}

TEST_F(TraceLog, InitKeepsThePreviousLogAsBackup) {
    use_log_file();
    write_file(pRTLogPath, "previous run");
    write_file(pRTBakLogPath, "the run before");
    vexutils::log_state.depth = 7;
    EXPECT_EQ(rt_log_init(), 0);
    EXPECT_EQ(file_content(pRTBakLogPath), "previous run");
    EXPECT_EQ(file(), "");
    EXPECT_EQ(vexutils::log_state.depth, 7u) << "the depth rule counts over the process's life";
    rt_log_Exit();
    LOG(Level::Trace, "%s", "late");
    EXPECT_EQ(rt_log_init(), 0);
    LOG(Level::Trace, "%s", "second life");
    rt_log_Exit();
    EXPECT_EQ(messages(), Lines{"second life"});
    EXPECT_NE(file_content(pRTBakLogPath).find("] late\n"), std::string::npos);
    EXPECT_EQ(platform.messages(1), Lines{});
}

TEST_F(TraceLog, WithoutItsFolderTheLogGoesOnWithoutAFile) {
    use_log_file();
    const std::string nowhere = path("missing/vexel.log");
    pRTLogPath = nowhere.c_str();
    rt_log_init();
    EXPECT_EQ(vexutils::log_state.init.load(), vexutils::LogInit::NoFile);
    EXPECT_EQ(platform.lines().size(), 1u);
    EXPECT_TRUE(logged(1, "Failed to create log file " + nowhere));
    EXPECT_EQ(platform.lines()[0].function, "rt_log_init");
    platform.clear_lines();
    vexel_wlog(0, "tag", L"text");
    rt_log_Exit();
    EXPECT_TRUE(platform.lines().empty());
    hexdump("AB", 2);
    const std::string blanks(14 * 3, ' ');
    EXPECT_EQ(dumped(), "000000: 41 42 " + blanks + " AB\n");
}

TEST_F(TraceLog, ALockThatFailsDropsTheFileCopyOnly) {
    use_log_file();
    logmutex = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
    pthread_mutex_lock(&logmutex);
    LOG(Level::Trace, "%s", "text");
    hexdump("A", 1);
    rt_log_Exit();  // nothing to give up before rt_log_init
    EXPECT_EQ(platform.lines().size(), 1u);
    EXPECT_EQ(file(), "");
    vexutils::log_state.init = vexutils::LogInit::Done;
    rt_log_Exit();
    EXPECT_TRUE(logged(1, "pthread_mutex_destroy  failed with " + std::to_string(EBUSY)));
    pthread_mutex_unlock(&logmutex);
    logmutex = PTHREAD_MUTEX_INITIALIZER;
}

TEST_F(TraceLog, WideTextsAreLoggedUnderATagAfterInitOnly) {
    use_log_file();
    vexel_wlog(1, "tag", L"early");
    EXPECT_EQ(rt_log_init(), 0);
    vexel_wlog(1, nullptr, L"text");
    vexel_wlog(1, "tag", nullptr);
    EXPECT_TRUE(platform.lines().empty());
    vexel_wlog(1, "tag", L"text");
    rt_log_Exit();
    EXPECT_EQ(platform.messages(4), Lines{"[tag] text"});
    EXPECT_NE(file().find(" [vexel_wlog] [tag] text\n"), std::string::npos);
}

TEST_F(TraceLog, TextsThatAreNullOrCannotBeConvertedKeepTheirLine) {
    use_log_file();
    const char* no_text = nullptr;
    const wchar_t* no_wide = nullptr;
    LOG(Level::Trace, "<%s|%ls>", no_text, no_wide);
    LOG(Level::Trace, "<%ls|%S>", L"a\xFFFFFFFz", L"\xD800");
    const Lines expected{"<(null)|(null)>", "<a?z|?>"};
    EXPECT_EQ(platform.messages(4), expected);
    EXPECT_EQ(messages(), expected);
}

TEST_F(TraceLog, LongLinesAreWholeAndCutOnlyWithoutMemory) {
    use_log_file();
    for (const size_t length : {900u, 1000u, 1100u, 5000u}) {
        const std::string text(length, 'x');
        LOG(Level::Trace, "%s", text.c_str());
        EXPECT_EQ(messages().back(), text);
    }
    const std::string text(5000, 'y');
    const AllocationScope scope;
    platform.fail(Place::Allocation);
    LOG(Level::Trace, "%s", "usual");
    EXPECT_EQ(platform.calls(Place::Allocation), 0);
    LOG(Level::Trace, "%s", text.c_str());
    EXPECT_TRUE(platform.fault_fired(Place::Allocation));
    const std::string cut = messages().back();
    EXPECT_GT(cut.size(), 900u);
    EXPECT_EQ(cut, text.substr(0, cut.size()));
    EXPECT_EQ(file().back(), '\n');
}

TEST_F(TraceLog, ACancellationWaitsUntilTheLogIsFree) {
    use_log_file();
    static int state_after;
    state_after = -1;
    pthread_t thread;
    const auto logger = [](void*) -> void* {
        pthread_cancel(pthread_self());
        LOG(Level::Trace, "%s", "cancelled");
        hexdump("A", 1);
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state_after);
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, logger, nullptr), 0);
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, nullptr) << "cancelled in the middle";
    EXPECT_EQ(state_after, PTHREAD_CANCEL_ENABLE);
    EXPECT_EQ(messages().size(), 2u);
}

TEST_F(TraceLog, LinesOfThreadsDoNotMix) {
    use_log_file();
    std::vector<std::jthread> threads;
    for (char letter = 'a'; letter < 'e'; ++letter) {
        threads.emplace_back([text = std::string(300, letter)] {
            for (int i = 0; i < 100; ++i) {
                LOG(Level::Trace, "%s", text.c_str());
            }
        });
    }
    threads.clear();
    const Lines lines = messages();
    EXPECT_EQ(lines.size(), 400u);
    for (const std::string& line : lines) {
        EXPECT_EQ(line, std::string(300, line[0]));
    }
}

TEST_F(TraceLog, DumpsBytesAsHexAndCharactersToBothSinks) {
    use_log_file();
    const std::string first =
        "000000: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66  "
        "0123456789abcdef\n";
    const std::pair<int, std::string> rows[] = {
        {0, ""},
        {-5, ""},
        {16, first},
        {20, first + "000010: 00 1f 20 7e " + std::string(12 * 3, ' ') + " .. ~\n"},
        {22, first + "000010: 00 1f 20 7e 7f ff " + std::string(10 * 3, ' ') + " .. ~..\n"}};
    vexutils::log_state.depth = 1000;  // a dump neither counts nor starts the file afresh
    for (const auto& [length, expected] : rows) {
        SCOPED_TRACE(length);
        write_file(pRTLogPath, "before\n");
        platform.clear_lines();
        EXPECT_EQ(hexdump("0123456789abcdef\x00\x1F ~\x7F\xFF", length), 0);
        EXPECT_EQ(file(), "before\n" + expected);
        EXPECT_EQ(dumped(), expected);
    }
    EXPECT_EQ(vexutils::log_state.depth, 1000u);
}

}  // namespace
