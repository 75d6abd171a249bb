#include "platform/evipc.h"
#include "tests/support/linux_test.h"

#include <deque>

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
    environment.set("VEX_CLOCK", "1700003600");
    EXPECT_EQ(alert("ENC46", {}, "NIC.Slot.1-1"), 0);
    const uint8_t request[16] = {16, 0, 0, 0, 0x29, 0x04, 2};
    EXPECT_EQ(EVIPCLSubmitSingle(request, 2, 0, 1065), 0);
    EXPECT_EQ(file_content(log),
              R"({"seq":1,"time":"2023-11-14T22:13:20.250Z","kind":"alert","severity":2,)"
              R"("messageId":"PDR3","arguments":["Disk \"7\"\n","",")"
              "\xc3\xa9\xef\xbf\xbd"
              R"(\\"],"fqdd":"PCIeSSD.Slot.3-1","friendlyName":"PCIe SSD in Slot 3"}
{"seq":2,"time":"2023-11-14T23:13:20.000Z","kind":"alert","severity":2,)"
              R"("messageId":"ENC46","arguments":[],"fqdd":"NIC.Slot.1-1"}
{"seq":3,"time":"2023-11-14T23:13:20.000Z","kind":"single","value":1065}
)");
    struct stat status {};
    EXPECT_EQ(stat(log.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07137, 0u) << "for the owner and readers of the group only";
}

TEST_F(LinuxEventLog, PacksArgumentsWithinTheirRoom) {
    const char* const texts[] = {"abc", "de", nullptr};
    char buffer[8] = {};
    uint32_t size = 6;
    EXPECT_LT(EVIPCLBuildMsgArgsBuffer(texts, 2, buffer, &size), 0) << "one byte short";
    size = 7;
    EXPECT_EQ(EVIPCLBuildMsgArgsBuffer(texts, 2, buffer, &size), 0);
    EXPECT_LT(EVIPCLBuildMsgArgsBuffer(texts + 2, 1, buffer, &size), 0) << "a null text";
    EXPECT_EQ(std::string(buffer, 8), std::string("abc\0de\0\0", 8));
}

TEST_F(LinuxEventLog, RefusesWhatItCannotKeepAndWritesNothing) {
    const std::string id(64, 'x');
    const uint8_t short_request[16] = {15, 0, 0, 0, 0x29, 0x04, 2};
    void* damaged = nullptr;
    ASSERT_EQ(EVIPCLCreateTLVList(&damaged), 0);
    EXPECT_EQ(EVIPCLAddTLVToList(6, 3, "abc", damaged), 0);
    EXPECT_LT(EVIPCLSubmitEvent(4, 2, 4, "A", 0, "B", nullptr), 0) << "severity 4";
    EXPECT_LT(EVIPCLSubmitEvent(4, 2, 1, id.c_str(), 0, "B", nullptr), 0) << "id without end";
    EXPECT_LT(EVIPCLSubmitEvent(4, 2, 1, "A", 0, "B", damaged), 0) << "arguments without end";
    EXPECT_LT(EVIPCLSubmitSingle(short_request, 2, 0, 1065), 0) << "another length";
    EVIPCLFreeTLVList(damaged);
    EXPECT_FALSE(std::filesystem::exists(log));
}

TEST_F(LinuxEventLog, ContinuesWhateverItFinds) {
    const Rows<const char*, const char*, const char*, const char*, uint64_t> rows{
        {"whole lines", "{\"seq\":7,x}\n{\"seq\":8,x}\n", "", "{\"seq\":7,x}\n{\"seq\":8,x}\n", 9},
        {"a torn line", "{\"seq\":7,x}\n{\"seq\":8,\"ti", "", "{\"seq\":7,x}\n", 8},
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
    environment.set("VEX_EVENT_LOG_FILES", "3");
    environment.set("VEX_EVENT_LOG_FSYNC", "1");
    environment.set("VEX_EVENT_LOG_SYSLOG", "1");  // whether anybody listens or not
    uint64_t last = 0;
    for (const auto& [variable, value] : Rows<const char*, const char*>{
             {"VEX_EVENT_LOG_MAX_RECORDS", "5"}, {"VEX_EVENT_LOG_MAX_BYTES", "4096"}}) {
        environment.set("VEX_EVENT_LOG_MAX_RECORDS", "1000");
        environment.set(variable, value);
        for (int i = 0; i < 60; ++i) {
            ASSERT_EQ(alert("CTL1", {text.c_str()}), 0);
        }
        EXPECT_FALSE(std::filesystem::exists(rotated(3)));
        uint64_t expected = last += 60;
        for (const std::string& path : {log, rotated(1), rotated(2)}) {
            EXPECT_LE(std::filesystem::file_size(path), 4096u);
            auto lines = lines_of(file_content(path));
            EXPECT_LE(lines.size(), 20u);
            for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
                EXPECT_EQ(sequence_of(*line), expected--);
            }
        }
    }
}

TEST_F(LinuxEventLog, SaysSoWhenItCannotWrite) {
    std::filesystem::create_symlink(dir / "elsewhere", dir / "link");
    for (const char* name : {"link", "no/such/folder"}) {
        environment.set("VEX_EVENT_LOG", dir / name);
        EXPECT_LT(alert("CTL1"), 0) << name;
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "elsewhere"));
}

/* Submits until it is killed; the pipe takes the number of each acknowledged submission. */
bool submit_for_ever(int pipe, int writer) {
    for (int number = 1'000'000 * writer;; ++number) {
        const std::string text = std::to_string(number);
        if (alert("CTL1", {text.c_str()}) == 0 &&
            write(pipe, &number, sizeof number) != sizeof number) {
            return false;
        }
    }
}

TEST_F(LinuxEventLog, KeepsEveryAcknowledgedRecordOfKilledWriters) {
    environment.set("VEX_EVENT_LOG_MAX_RECORDS", "1000");
    environment.set("VEX_EVENT_LOG_FILES", "100");
    std::mt19937 random{20240229};
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    std::deque<pid_t> running;
    for (int writer = 1; writer <= 12; ++writer) {
        running.push_back(in_child([&] { return submit_for_ever(ends[1], writer); }));
        std::this_thread::sleep_for(milliseconds{random() % 20});
        while (running.size() > (writer < 12 ? 2 : 0)) {
            kill(running.front(), SIGKILL);
            EXPECT_FALSE(succeeded(running.front()));
            running.pop_front();
        }
    }
    close(ends[1]);
    ASSERT_EQ(alert("CTL2"), 0);  // cuts off what the last victim may have left

    std::string content;
    for (int number = 99; number > 0; --number) {
        content += file_content(rotated(number));
    }
    content += file_content(log);
    uint64_t expected = 1;
    std::set<std::string> kept;
    for (const std::string& line : lines_of(content)) {
        ASSERT_EQ(sequence_of(line), expected++) << line;
        kept.insert(line.substr(line.find("\"arguments\"")));
    }
    EXPECT_GT(expected, 50u);
    for (int number = 0; read(ends[0], &number, sizeof number) == sizeof number;) {
        EXPECT_TRUE(kept.contains("\"arguments\":[\"" + std::to_string(number) + "\"]}"));
    }
    close(ends[0]);
}

}  // namespace
