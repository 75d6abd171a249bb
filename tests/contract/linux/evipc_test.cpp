#include "platform/evipc.h"
#include "tests/support/linux_test.h"

#include <sys/resource.h>

namespace {

using Texts = std::vector<const char*>;

/* Submits an alert the way the library does. Returns: the result of the submission. */
int32_t alert(const char* id, const Texts& arguments = {}, const char* fqdd = nullptr) {
    char packed[200];
    uint32_t size = sizeof packed;
    const auto count = static_cast<uint8_t>(arguments.size());
    EXPECT_EQ(EVIPCLBuildMsgArgsBuffer(arguments.data(), count, packed, &size), 0);
    void* list = nullptr;
    EXPECT_EQ(EVIPCLCreateTLVList(&list), 0);
    EXPECT_EQ(EVIPCLAddTLVToList(6, static_cast<uint16_t>(size), packed, list), 0);
    const int32_t result = EVIPCLSubmitEvent(4, 2, 2, id, 0, fqdd, list);
    EXPECT_EQ(EVIPCLFreeTLVList(list), 0);
    return result;
}

Lines lines_of(const std::string& text) {
    Lines lines;
    std::istringstream stream{text};
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/* Sequence number of a line that is whole, 0 for any other. */
uint64_t sequence_of(const std::string& line) {
    const bool whole = line.starts_with("{\"seq\":") && line.ends_with("}");
    return whole ? std::strtoull(line.c_str() + 7, nullptr, 10) : 0;
}

class LinuxEventLog : public testing::Test {
  protected:
    LinuxEventLog() {
        environment.set("VEX_EVENT_LOG", log);
        environment.set("VEX_CLOCK", "1700000000.250");
    }
    std::string rotated(int number) const { return log + '.' + std::to_string(number); }

    TempDir dir;
    Environment environment;
    std::string log = dir / "events.log";
};

TEST_F(LinuxEventLog, WritesOneLinePerSubmission) {
    EXPECT_EQ(alert("PDR3", {"Disk \"7\"\n", "", "\xc3\xa9\xff\\"}, "PCIeSSD.Slot.3-1"), 0);
    EXPECT_EQ(EVIPCLSubmitEvent(4, 1, 3, "CTL140", 0, nullptr, nullptr), 0);
    const uint8_t request[16] = {16, 0, 0, 0, 0x29, 0x04, 2};
    EXPECT_EQ(EVIPCLSubmitSingle(request, 2, 0, 1065), 0);
    environment.set("VEX_CLOCK", "1700003600");
    EXPECT_EQ(alert("ENC46", {}, "NIC.Slot.1-1"), 0);
    const std::string stamp = R"("time":"2023-11-14T22:13:20.250Z",)";
    EXPECT_EQ(
        file_content(log),
        R"({"seq":1,)" + stamp +
            R"("kind":"alert","severity":2,"messageId":"PDR3","arguments":["Disk \"7\"\n","",")"
            "\xc3\xa9\xef\xbf\xbd"
            R"(\\"],"fqdd":"PCIeSSD.Slot.3-1","friendlyName":"PCIe SSD in Slot 3"}
{"seq":2,)" +
            stamp +
            R"("kind":"alert","severity":3,"messageId":"CTL140","arguments":[]}
{"seq":3,)" +
            stamp +
            R"("kind":"single","value":1065}
{"seq":4,"time":"2023-11-14T23:13:20.000Z",)"
            R"("kind":"alert","severity":2,"messageId":"ENC46","arguments":[],)"
            R"("fqdd":"NIC.Slot.1-1"}
)");
    struct stat status {};
    EXPECT_EQ(stat(log.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07137, 0u) << "for the owner and readers of the group only";
}

TEST_F(LinuxEventLog, PacksArgumentsWithinTheirRoom) {
    // used: 0: refused
    const Rows<const char*, Texts, uint32_t, uint32_t> rows{
        {"fills the room", {"abc", "de"}, 7, 7}, {"one byte short", {"abc", "de"}, 6, 0},
        {"room left", {"abc"}, 200, 4},          {"an empty text takes its end", {""}, 1, 1},
        {"no room at all", {""}, 0, 0},          {"a null text", {"a", nullptr}, 200, 0}};
    for (const auto& [what, texts, room, used] : rows) {
        char buffer[201];
        std::memset(buffer, 0x55, sizeof buffer);
        uint32_t size = room;
        const auto count = static_cast<uint8_t>(texts.size());
        EXPECT_EQ(EVIPCLBuildMsgArgsBuffer(texts.data(), count, buffer, &size) == 0, used != 0);
        EXPECT_EQ(size, used != 0 ? used : room);
        EXPECT_EQ(buffer[room], 0x55);
    }
}

TEST_F(LinuxEventLog, RefusesWhatItCannotKeepAndWritesNothing) {
    const std::string id(64, 'x');
    const std::string fqdd(256, 'x');
    const uint8_t short_request[16] = {15, 0, 0, 0, 0x29, 0x04, 2};
    const uint8_t request[16] = {16, 0, 0, 0, 0x29, 0x04, 2};
    void* damaged = nullptr;
    ASSERT_EQ(EVIPCLCreateTLVList(&damaged), 0);
    EXPECT_LT(EVIPCLAddTLVToList(6, 1, nullptr, damaged), 0);
    EXPECT_EQ(EVIPCLAddTLVToList(6, 3, "abc", damaged), 0);
    EXPECT_LT(EVIPCLAddTLVToList(6, 3, "abc", nullptr), 0);
    const Rows<const char*, int32_t> rows{
        {"severity 0", EVIPCLSubmitEvent(4, 2, 0, "A", 0, "B", nullptr)},
        {"severity 4", EVIPCLSubmitEvent(4, 2, 4, "A", 0, "B", nullptr)},
        {"no message id", EVIPCLSubmitEvent(4, 2, 1, nullptr, 0, "B", nullptr)},
        {"an empty message id", EVIPCLSubmitEvent(4, 2, 1, "", 0, "B", nullptr)},
        {"a message id without end", EVIPCLSubmitEvent(4, 2, 1, id.c_str(), 0, "B", nullptr)},
        {"an FQDD without end", EVIPCLSubmitEvent(4, 2, 1, "A", 0, fqdd.c_str(), nullptr)},
        {"arguments without end", EVIPCLSubmitEvent(4, 2, 1, "A", 0, "B", damaged)},
        {"no request", EVIPCLSubmitSingle(nullptr, 2, 0, 1065)},
        {"a request of another length", EVIPCLSubmitSingle(short_request, 2, 0, 1065)},
        {"two values", EVIPCLSubmitSingle(request, 2, 0, 1066)}};
    EVIPCLFreeTLVList(damaged);
    EXPECT_EQ(EVIPCLFreeTLVList(nullptr), 0);
    for (const auto& [what, result] : rows) {
        EXPECT_LT(result, 0) << what;
    }
    EXPECT_FALSE(std::filesystem::exists(log));
}

TEST_F(LinuxEventLog, ContinuesWhateverItFinds) {
    const Rows<const char*, const char*, const char*, const char*, uint64_t> rows{
        {"nothing", "", "", "", 1},
        {"whole lines", "{\"seq\":7,x}\n{\"seq\":8,x}\n", "", "{\"seq\":7,x}\n{\"seq\":8,x}\n", 9},
        {"a torn line", "{\"seq\":7,x}\n{\"seq\":8,\"ti", "", "{\"seq\":7,x}\n", 8},
        {"only a torn line", "{\"seq\":8", "{\"seq\":7,x}\n", "", 8},
        {"garbage after a power cut", "{\"seq\":7,x}\n\1\1", "", "{\"seq\":7,x}\n", 8},
        {"a line of somebody else at the end", "{\"seq\":7,x}\nhello\n", "",
         "{\"seq\":7,x}\nhello\n", 8},
        {"killed in a rotation", "", "{\"seq\":41,x}\n", "", 42}};
    for (const auto& [what, current, older, kept, next] : rows) {
        std::filesystem::remove(log);  // the new file often gets its number
        write_file(log, current);
        write_file(rotated(1), older);
        EXPECT_EQ(alert("CTL1"), 0);
        const std::string content = file_content(log);
        ASSERT_TRUE(content.starts_with(kept));
        EXPECT_EQ(sequence_of(lines_of(content.substr(std::strlen(kept))).at(0)), next);
    }
}

TEST_F(LinuxEventLog, CapsEachFileByCountAndBytesAndTheirNumber) {
    const std::string text(150, 't');
    const Rows<const char*, const char*, const char*> rows{
        {"by count", "VEX_EVENT_LOG_MAX_RECORDS", "5"},
        {"by bytes", "VEX_EVENT_LOG_MAX_BYTES", "4096"}};
    environment.set("VEX_EVENT_LOG_FILES", "3");
    environment.set("VEX_EVENT_LOG_FSYNC", "1");
    environment.set("VEX_EVENT_LOG_SYSLOG", "1");  // whether anybody listens or not
    uint64_t last = 0;
    for (const auto& [what, variable, value] : rows) {
        environment.set(variable, value);
        for (int i = 0; i < 60; ++i) {
            ASSERT_EQ(alert("CTL1", {text.c_str()}), 0);
        }
        last += 60;
        EXPECT_FALSE(std::filesystem::exists(rotated(3)));
        uint64_t expected = last;
        for (const std::string& path : {log, rotated(1), rotated(2)}) {
            EXPECT_LE(std::filesystem::file_size(path), 4096u);
            auto lines = lines_of(file_content(path));
            EXPECT_LE(lines.size(), 20u);
            for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
                EXPECT_EQ(sequence_of(*line), expected--);
            }
        }
        environment.set("VEX_EVENT_LOG_MAX_RECORDS", "1000");
        EXPECT_EQ(alert("CTL1"), 0);
        ++last;
    }
    const std::vector<char> large(5000, 'x');
    void* list = nullptr;
    EXPECT_EQ(EVIPCLCreateTLVList(&list), 0);
    EXPECT_EQ(EVIPCLAddTLVToList(9, 5000, large.data(), list), 0);
    EXPECT_LT(EVIPCLSubmitEvent(4, 2, 1, "A", 0, nullptr, list), 0) << "larger than a whole file";
    EVIPCLFreeTLVList(list);
}

TEST_F(LinuxEventLog, SaysSoWhenItCannotWrite) {
    std::filesystem::create_directory(dir / "folder");
    std::filesystem::create_symlink(dir / "elsewhere", dir / "link");
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    for (const char* name : {"folder", "link", "pipe", "no/such/folder"}) {
        environment.set("VEX_EVENT_LOG", dir / name);
        EXPECT_LT(alert("CTL1"), 0) << name;
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "elsewhere"));
}

TEST_F(LinuxEventLog, AFullMediumLeavesNoHalfLine) {
    ASSERT_EQ(alert("CTL1"), 0);
    const std::string before = file_content(log);
    EXPECT_TRUE(succeeded(in_child([&] {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{before.size() + 10, before.size() + 10};
        setrlimit(RLIMIT_FSIZE, &limit);
        return alert("CTL2") < 0;
    })));
    EXPECT_EQ(file_content(log), before);
}

/* Submits until it is killed; each acknowledged submission's number goes to the pipe. */
bool submit_for_ever(int pipe, int writer) {
    for (uint32_t i = 0;; ++i) {
        const std::string text = std::to_string(writer) + '/' + std::to_string(i);
        if (alert("CTL1", {text.c_str()}) == 0 && write(pipe, &i, sizeof i) != sizeof i) {
            return false;
        }
    }
}

TEST_F(LinuxEventLog, KeepsEveryAcknowledgedRecordOfKilledWriters) {
    constexpr int kWriters = 12;
    constexpr unsigned kSeed = 20240229;
    environment.set("VEX_EVENT_LOG_MAX_RECORDS", "2000");
    environment.set("VEX_EVENT_LOG_FILES", "100");
    std::mt19937 random{kSeed};
    std::set<std::string> acknowledged;
    std::map<pid_t, std::pair<int, int>> running;  // process: writer, pipe
    for (int writer = 0; writer < kWriters || !running.empty(); ++writer) {
        if (writer < kWriters) {
            int pipes[2];
            ASSERT_EQ(pipe(pipes), 0);
            const pid_t child = in_child([&] { return submit_for_ever(pipes[1], writer); });
            close(pipes[1]);
            running[child] = {writer, pipes[0]};
        }
        std::this_thread::sleep_for(milliseconds{random() % 40});
        if (running.size() < 3 && writer < kWriters) {
            continue;
        }
        const auto victim =
            std::next(running.begin(), static_cast<long>(random() % running.size()));
        kill(victim->first, SIGKILL);
        waitpid(victim->first, nullptr, 0);
        for (uint32_t i = 0; read(victim->second.second, &i, sizeof i) == sizeof i;) {
            acknowledged.insert(std::to_string(victim->second.first) + '/' + std::to_string(i));
        }
        close(victim->second.second);
        running.erase(victim);
    }
    ASSERT_EQ(alert("CTL2"), 0);  // cuts off what the last victim may have left

    std::string content;
    for (int number = 99; number > 0; --number) {
        content += file_content(rotated(number));
    }
    content += file_content(log);
    ASSERT_TRUE(content.ends_with("}\n"));
    uint64_t expected = 1;
    for (const std::string& line : lines_of(content)) {
        ASSERT_EQ(sequence_of(line), expected++) << line;
        const size_t argument = line.find("[\"");
        if (argument != std::string::npos) {
            acknowledged.erase(line.substr(argument + 2, line.find("\"]") - argument - 2));
        }
    }
    EXPECT_GT(expected, 50u);
    EXPECT_TRUE(acknowledged.empty())
        << acknowledged.size() << " missing, " << *acknowledged.begin();
}

}  // namespace
