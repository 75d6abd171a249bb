#include <clocale>
#include <ctime>
#include <regex>
#include <sstream>
#include <thread>

#include "internal/log.h"
#include "tests/support/platform_test.h"

using vexutils::Level;

namespace {

class TraceLog : public PlatformTest {
  protected:
    std::string file() const { return file_content(pRTLogPath); }

    // The file's messages, without their prefixes.
    std::string messages() const {
        return std::regex_replace(file(), std::regex{"\\(T:[^\\]]*\\] "}, "");
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
    const std::string number = std::to_string(__LINE__ + 1);
    LOG(Level::Trace, "%s%s %d", "--> enter", __func__, ++evaluated);
    EXPECT_EQ(errno, 77);
    const std::string after = now_as_prefix();
    const fake::LogLine& sent = platform.lines().at(0);
    EXPECT_EQ(sent.level, 4);
    EXPECT_EQ(sent.module, 15);
    EXPECT_EQ(sent.text, "vexel_log_test.cpp:TestBody:" + number + ":--> enterTestBody 1\n");
    char thread[20];
    snprintf(thread, sizeof(thread), "(T:%08X) ", static_cast<unsigned>(pthread_self()));
    const std::string rest = " [TestBody] --> enterTestBody 1\n";
    const std::string line = file();
    EXPECT_TRUE(line == thread + before + rest || line == thread + after + rest) << line;
}

TEST_F(TraceLog, WideTextsFollowTheLocale) {
    const bool utf8 = setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
    LOG(Level::Trace, "%ls", L"\x20AC");
    char* name = getFriendlyFQDDName(L"Fan.\x20AC");
    setlocale(LC_CTYPE, "C");
    EXPECT_EQ(platform.messages(4).front(), utf8 ? "\u20AC" : "?");
    EXPECT_STREQ(name, utf8 ? "Friendly Fan." : "Friendly Fan.?") << "a byte a character is all";
    vexel_free(name);
}

TEST_F(TraceLog, EveryThousandthLineStartsTheFileAfresh) {
    use_log_file();
    platform.record_lines(false);
    const std::string text(5000, 'x');  // lines of any length are whole
    for (int i = 0; i < 2001; ++i) {
        LOG(Level::Trace, "%s%d", text.c_str(), i);
    }
    EXPECT_EQ(messages(), text + "2000\n");
}

TEST_F(TraceLog, TheFirstLookAtTheFlagFileHoldsForGood) {
    const std::string flag = path("flag");
    vexutils::flag_paths.log_disabled = flag.c_str();
    vexutils::log_state.file = vexutils::LogFile::NotChecked;
    write_file(flag, "");
    EXPECT_EQ(IsvexelLogDisabled(), 1u);
    remove(flag.c_str());
    EXPECT_EQ(IsvexelLogDisabled(), 1u);
    LOG(Level::Trace, "%s", "text");
    EXPECT_EQ(hexdump("A", 1), 0);
    EXPECT_EQ(platform.messages(4), Lines{"text"}) << "a dump follows the flag too";
    EXPECT_EQ(file(), "");
}

TEST_F(TraceLog, InitKeepsThePreviousLogAsBackup) {
    use_log_file();
    write_file(pRTLogPath, "previous run");
    vexutils::log_state.depth = 7;
    vexel_wlog(1, "tag", L"before the start");
    EXPECT_EQ(rt_log_init(), 0);
    EXPECT_EQ(file_content(pRTBakLogPath), "previous run");
    EXPECT_EQ(vexutils::log_state.depth, 7u) << "the depth rule counts over the process's life";
    vexel_wlog(1, "tag", L"text");
    vexel_wlog(1, nullptr, L"text");
    vexel_wlog(1, "tag", nullptr);
    rt_log_Exit();
    LOG(Level::Trace, "%s", "late");
    EXPECT_EQ(messages(), "[tag] text\nlate\n");
}

TEST_F(TraceLog, DumpsBytesAsHexAndCharactersToBothSinks) {
    use_log_file();
    vexutils::log_state.depth = 1000;  // a dump neither counts nor starts the file afresh
    write_file(pRTLogPath, "before\n");
    EXPECT_EQ(hexdump("0123456789abcdef\x00\x1F ~\x7F\xFF", 22), 0);
    const std::string first =
        "000000: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66  0123456789abcdef\n";
    const std::string second =
        "000010: 00 1f 20 7e 7f ff " + std::string(10 * 3, ' ') + " .. ~..\n";
    EXPECT_EQ(file(), "before\n" + first + second);
    EXPECT_EQ(platform.lines().at(0).text + platform.lines().at(1).text, first + second);
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

TEST_F(TraceLog, LinesOfThreadsDoNotMix) {
    use_log_file();
    std::vector<std::jthread> threads;
    for (char letter = 'a'; letter < 'i'; ++letter) {
        threads.emplace_back([text = std::string(300, letter)] {
            for (int i = 0; i < 100; ++i) {
                LOG(Level::Trace, "%s", text.c_str());
            }
        });
    }
    threads.clear();
    std::istringstream lines{messages()};
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        EXPECT_EQ(line, std::string(300, line[0]));
    }
    EXPECT_EQ(count, 800);
}

}  // namespace
