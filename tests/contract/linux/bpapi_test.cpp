#include "platform/bpapi.h"
#include "tests/support/linux_test.h"

#include <condition_variable>

namespace {

// The debug log reads its settings once; the cases below read its lines.
[[maybe_unused]] const int kDebugLogToStderr = setenv("VEX_DEBUG_LOG", "stderr", 1);

/* What the callbacks saw. Callbacks carry no data of their own, so there is one for all. */
struct Seen {
    std::mutex mutex;
    std::condition_variable changed;
    Bytes systems;  // bpId of bay 0 at each callback
    std::set<std::thread::id> threads;
    std::function<void()> inside;
};
Seen seen;

void on_change(const BpApiInfo* info) {
    std::function<void()> inside;
    {
        const std::lock_guard lock{seen.mutex};
        seen.systems.push_back(static_cast<uint8_t>(info->bays[0].bpId));
        seen.threads.insert(std::this_thread::get_id());
        inside = seen.inside;
    }
    seen.changed.notify_all();
    if (inside) {
        inside();
    }
}

bool wait_for_callbacks(size_t count) {
    std::unique_lock lock{seen.mutex};
    return seen.changed.wait_for(lock, seconds{10}, [&] { return seen.systems.size() >= count; });
}

/* A topology of one bay with two slots; its bpId tells one content from another. */
std::string small_topology(int bp_id, const char* drives = R"({"slot":0},{"slot":1})") {
    return R"({"systemId":215,"bays":[{"bayId":2,"technology":"nvme","physicalSlots":2,"bpId":)" +
           std::to_string(bp_id) + R"(,"drives":[)" + drives + "]}]}\n";
}

ptrdiff_t entries_of(const char* folder) {
    return std::distance(std::filesystem::directory_iterator{folder}, {});
}

class LinuxBackplane : public testing::Test {
  protected:
    LinuxBackplane() {
        environment.set("VEX_BACKPLANE", "file:" + file);
        replace(small_topology(1));
        seen.systems.clear();
        seen.threads.clear();
        seen.inside = nullptr;
    }
    static ZentBpApiHandle open(ZentBpApiCallback callback = nullptr) {
        return ZentBpApiOpenExec(callback, 0, __FILE__, __func__, __LINE__, 0);
    }
    static uint32_t close(ZentBpApiHandle handle) {
        return ZentBpApiCloseExec(handle, nullptr, nullptr, 0);
    }
    static uint32_t write(ZentBpApiHandle handle, uint8_t bay, uint8_t slot, uint16_t state) {
        const BpDriveStateWrite record{bay, slot, state};
        return ZentBpApiWriteExec(handle, BPAPI_WRITE_DRIVE_STATE, &record, "", "", 0);
    }
    static int bp_id(ZentBpApiHandle handle) {
        BpApiInfo info;
        return ZentBpApiReadExec(handle, &info, "", "", 0) == 0 ? info.bays[0].bpId : -1;
    }
    void replace(const std::string& content) const {
        write_file(file + ".tmp", content);
        std::filesystem::rename(file + ".tmp", file);
    }
    /* The debug log of an attempt to open a file with this content, which must fail. */
    std::string complaint_about(const std::string& content) const {
        replace(content);
        testing::internal::CaptureStderr();
        const ZentBpApiHandle handle = open();
        std::string text = testing::internal::GetCapturedStderr();
        EXPECT_EQ(handle, nullptr);
        if (handle != nullptr) {
            close(handle);
        }
        return text;
    }

    TempDir dir;
    Environment environment;
    std::string file = dir / "backplane.json";
};

TEST_F(LinuxBackplane, EncodesTheExampleByteForByte) {
    environment.set("VEX_BACKPLANE", std::string{"file:"} + VEX_SCENARIOS + "/backplane.json");
    const Rows<unsigned, Bytes> rows{
        {4, {3, 5, 5}},  // bays, drives as printed, drives
        {8, {2}},        // risers
        // bay 0 at 66
        {80, {1}},              // inventoried
        {82, {0x02, 0x03, 1}},  // bpId, downstream count
        {97,
         {3, 0, 0, 0, 2, 1, 2, 1}},  // downstream ids, bay id, technology, management, carrier, ...
        {119, {8, 8}},               // slots; primary and its own primary bay are 0
        {122, {2}},                  // drives that are there
        {129, {4, 0x35}},            // firmware
        // bay 1 at 194
        {208, {1}},
        {213, {8, 0, 0, 0, 4, 0, 0, 0x80}},  // PCIe slots, slots cabled to a KRON controller
        {228, {1, 1, 0, 0, 2, 4}},           // bay id, technology, ..., controller bay, second id
        {246, {1, 4, 6}},
        {250, {2}},
        {257, {2, 0x31, 0xAB, 0x34, 0x12}},
        {268, {2}},  // slot offset
        // bay 2 at 322
        {356, {3, 5, 0, 0, 3}},
        {373, {1, 0, 2, 2}},
        // drives: id, sensor, bay, slot, controller slot, -, extender slot, location, -, -,
        // technology, state, ...
        {835, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 1}},
        {853, {1, 0, 0, 1, 5, 0, 0, 0, 0, 0, 2, 1}},
        {871, {2, 0, 0, 7, 7, 0, 0, 0, 0, 0, 2, 0}},
        {889, {40, 97, 1, 2, 2, 0, 3, 0, 0, 0, 1, 1, 0, 0, 0, 1, 65}},
        {907, {4, 0, 1, 3, 3, 0, 3, 48, 0, 0, 4, 0x01, 0x02}},
        // risers: present, bay, type, PCIe slot, number
        {5334, {1, 1, 4, 3, 1}},
        {5340, {0, 0, 2, 6, 7}}};
    Bytes expected(BPAPI_INFO_SIZE + 1, 0);
    for (const auto& [offset, bytes] : rows) {
        std::copy(bytes.begin(), bytes.end(), &expected[offset]);
    }
    Bytes actual(BPAPI_INFO_SIZE + 1, 0xEE);
    const ZentBpApiHandle handle = open();
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(ZentBpApiReadExec(handle, actual.data(), "", "", 0), 0u);
    EXPECT_EQ(Zent_get_system_id(), 100u);
    EXPECT_EQ(actual.back(), 0xEE);
    for (unsigned i = 0; i < BPAPI_INFO_SIZE; ++i) {
        EXPECT_EQ(actual[i], expected[i]) << "at " << i;
    }
    EXPECT_EQ(close(handle), 0u);
}

TEST_F(LinuxBackplane, NamesFileLineAndFieldOfAMistake) {
    const std::string bay = R"({"bayId":0,"technology":"sas","physicalSlots":2})";
    // complaint: behind the file's name
    for (const auto& [row_content, row_complaint] : Rows<std::string, const char*>{
             {"", ":1: "},
             {"{\n\"bays\": [\n1,\n}", ":4: "},
             {"{\"systemId\": 1,\n\"systemId\": 1}", ":2: systemId: given twice"},
             {"{\"systemId\":\n-1}", ":1: systemId: expected a whole number from 0 to 4294967295"},
             {"{\"bays\": {}}", ":1: bays: expected a list of at most 6"},
             {"{\"bays\": [\n{\"technology\": 1}]}",
              ":2: bays[0].bayId: missing: expected a whole number from 0 to 254"},
             {"{\"bays\": [" + bay + ",\n" + bay + "]}",
              ":2: bays[1].bayId: expected a number that no other bay has"},
             {R"({"bays": [{"bayId":0,"technology":"sata"}]})",
              ":1: bays[0].technology: expected \"nvme\""},
             {R"({"bays": [{"bayId":0,"technology":1,"physicalSlots":2,"slotOffset":254}]})",
              ":1: bays[0].slotOffset: expected a whole number from 0 to 253"},
             {R"({"bays": [{"bayId":0,"technology":1,"physicalSlots":2,"firmware":"2.100"}]})",
              ":1: bays[0].firmware: expected MAJOR.MINOR"},
             {R"({"bays": [{"bayId":0,"technology":1,"physicalSlots":2,"nvmeKronSlots":[1,32]}]})",
              ":1: bays[0].nvmeKronSlots[1]: expected a whole number from 0 to 31"},
             {small_topology(1, "\n{\"slot\":2}"),
              ":2: bays[0].drives[0].slot: expected a whole number from 0 to 1"},
             {small_topology(1, "{\"slot\":1},\n{\"slot\":1}"),
              ":2: bays[0].drives[1].slot: expected a slot that holds no other drive"},
             {small_topology(1, R"({"slot":1,"state":2,"present":true})"),
              ":1: bays[0].drives[0].state: expected bit 0"},
             {R"({"risers": [{"bayId": 1, "pcieSlot": 1}]})",
              ":1: risers[0].bayId: expected the id of one of the bays"},
             {std::string(100000, '['), ":1: nested too deeply"}}) {
        const std::string complaint = complaint_about(row_content);
        EXPECT_NE(complaint.find(file + row_complaint), std::string::npos)
            << complaint << "expected " << row_complaint;
    }
    EXPECT_NE(complaint_about(std::string(2 << 20, ' ')).find("File too large"), std::string::npos);
}

TEST_F(LinuxBackplane, HasNoSessionWithoutABackplane) {
    for (const auto& [mode, complaint] : Rows<const char*, const char*>{
             {"", "no backplane"},
             {"none", "no backplane"},
             {"sysfs", "VEX_BACKPLANE=sysfs is not available in this build"},
             {"file:", "expected file:PATH or none"},
             {"file:/nonexistent/backplane.json", "/nonexistent/backplane.json: No such file"},
             {"file:/dev/zero", "/dev/zero: Invalid argument"}}) {
        environment.set("VEX_BACKPLANE", mode);
        EXPECT_NE(complaint_about("{}").find(complaint), std::string::npos) << mode;
        EXPECT_EQ(Zent_get_system_id(), 0u);
    }
    environment.set("VEX_BACKPLANE", "file:" + file);
    replace(small_topology(1));
    EXPECT_EQ(Zent_get_system_id(), 215u) << "also without a session";
}

TEST_F(LinuxBackplane, CallsBackOncePerChangeOnItsOwnThread) {
    const ZentBpApiHandle handle = open(on_change);
    const ZentBpApiHandle reader = open();
    ASSERT_NE(handle, nullptr);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(bp_id(reader), 1);

    replace(small_topology(2));
    EXPECT_EQ(bp_id(reader), 2) << "a read never waits for the watcher";
    EXPECT_TRUE(wait_for_callbacks(1));
    write_file(file, small_topology(3));
    EXPECT_TRUE(wait_for_callbacks(2)) << "written in place";
    replace(small_topology(3) + "\n");  // another text, the same topology
    replace("{");
    EXPECT_EQ(bp_id(reader), 3) << "a bad file changes nothing";
    std::filesystem::remove(file);
    EXPECT_EQ(bp_id(reader), 3);
    replace(small_topology(4));
    EXPECT_TRUE(wait_for_callbacks(3));

    EXPECT_EQ(close(handle), 0u);
    replace(small_topology(5));
    EXPECT_EQ(bp_id(reader), 5);
    EXPECT_EQ(close(reader), 0u);
    EXPECT_EQ(seen.systems, (Bytes{2, 3, 4}));
    EXPECT_EQ(seen.threads.size(), 1u);
    EXPECT_FALSE(seen.threads.contains(std::this_thread::get_id()));
}

TEST_F(LinuxBackplane, FollowsALinkIntoAnotherFolder) {
    std::filesystem::create_directory(dir / "data");
    std::filesystem::rename(file, dir / "data/real.json");
    std::filesystem::create_symlink(dir / "data/real.json", file);
    const ZentBpApiHandle handle = open(on_change);
    write_file(dir / "data/real.json", small_topology(9));
    EXPECT_TRUE(wait_for_callbacks(1));
    EXPECT_EQ(close(handle), 0u);
}

TEST_F(LinuxBackplane, KeepsDriveStatesWhereOtherProcessesReadThem) {
    const std::string states = dir / "states";
    environment.set("VEX_BACKPLANE_STATE", states);
    EXPECT_TRUE(succeeded(in_child([] {
        const ZentBpApiHandle own = open();
        return own != nullptr && write(own, 2, 1, 8) == 0 && close(own) == 0;
    })));
    const ZentBpApiHandle handle = open(on_change);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(write(handle, 2, 0, 8), 0u);
    EXPECT_EQ(write(handle, 2, 0, 0x101), 0u);
    for (const auto& [what, result] : Rows<const char*, uint32_t>{
             {"a bay that is not there", write(handle, 1, 0, 8)},
             {"no position", write(handle, 255, 255, 8)},
             {"a slot that is not there", write(handle, 2, 2, 8)},
             {"another type of record", ZentBpApiWriteExec(handle, 2, "1234", "", "", 0)},
             {"no record", ZentBpApiWriteExec(handle, BPAPI_WRITE_DRIVE_STATE, nullptr, "", "", 0)},
         }) {
        EXPECT_NE(result & 0xFF, 0u);
        EXPECT_NE(ZentBpApiError(result), nullptr);
    }
    // What the file holds, without its white space.
    const auto content = [&states] {
        std::string text = file_content(states);
        std::erase_if(text, [](char c) { return c == ' ' || c == '\n'; });
        return text;
    };
    const std::string head = R"({"format":1,"writes":3,"drives":[)";
    const std::string set = R"({"bayId":2,"slot":0,"state":257,"identify":false}]})";
    EXPECT_EQ(content(), head + R"({"bayId":2,"slot":1,"state":8,"identify":true},)" + set);
    replace(small_topology(2, R"({"slot":0},{"slot":1,"present":false})"));
    EXPECT_TRUE(wait_for_callbacks(1));
    EXPECT_EQ(content(), head + set) << "a drive that was taken out takes its state along";

    write_file(states, "{\"format\": 1");
    EXPECT_EQ(write(handle, 2, 1, 8), 0u) << "damaged states start anew";
    EXPECT_NE(content().find("\"writes\":1"), std::string::npos);
    std::filesystem::remove(states);
    std::filesystem::create_directory(states);
    EXPECT_NE(write(handle, 2, 1, 8), 0u) << "nothing stored, nothing acknowledged";
    EXPECT_EQ(close(handle), 0u);
}

TEST_F(LinuxBackplane, RefusesHandlesThatAreNoOpenSession) {
    BpApiInfo info;
    std::memset(&info, 0xEE, sizeof info);
    const ZentBpApiHandle closed = open();
    EXPECT_EQ(close(closed), 0u);
    const ZentBpApiHandle other = open();
    for (const ZentBpApiHandle handle : {ZentBpApiHandle{nullptr}, closed}) {
        EXPECT_NE(ZentBpApiReadExec(handle, &info, "", "", 0), 0u);
        EXPECT_NE(write(handle, 2, 0, 8), 0u);
        EXPECT_NE(close(handle), 0u);
    }
    EXPECT_NE(ZentBpApiReadExec(other, nullptr, "", "", 0), 0u);
    EXPECT_EQ(info.bayCnt, 0xEE);
    EXPECT_EQ(close(other), 0u);
    EXPECT_EQ(ZentBpApiError(250), nullptr);
}

TEST_F(LinuxBackplane, CloseWaitsForARunningCallback) {
    const ptrdiff_t threads = entries_of("/proc/self/task");
    const ptrdiff_t descriptors = entries_of("/proc/self/fd");
    std::atomic<bool> returned{false};
    seen.inside = [&] {
        std::this_thread::sleep_for(milliseconds{100});
        returned = true;
    };
    const ZentBpApiHandle handle = open(on_change);
    replace(small_topology(2));
    EXPECT_TRUE(wait_for_callbacks(1));
    EXPECT_EQ(close(handle), 0u);
    EXPECT_TRUE(returned);
    EXPECT_EQ(entries_of("/proc/self/fd"), descriptors);
    for (int i = 0; i < 500 && entries_of("/proc/self/task") > threads; ++i) {
        std::this_thread::sleep_for(milliseconds{10});  // a joined thread is listed a little longer
    }
    EXPECT_EQ(entries_of("/proc/self/task"), threads) << "the last close ends the thread";
}

TEST_F(LinuxBackplane, ACallbackMayCloseAndReopen) {
    ZentBpApiHandle handle = open(on_change);
    std::atomic<int> closed{-1};
    seen.inside = [&] {
        const uint32_t result = close(handle);
        handle = open(on_change);  // no callback for the change that runs just now
        closed = static_cast<int>(result);
        closed.notify_all();
    };
    replace(small_topology(2));
    EXPECT_TRUE(wait_for_callbacks(1));
    closed.wait(-1);
    EXPECT_EQ(closed, 0);
    closed = -1;
    seen.inside = [&] {
        closed = static_cast<int>(close(handle));  // the last session of all
        closed.notify_all();
    };
    replace(small_topology(3));
    EXPECT_TRUE(wait_for_callbacks(2));
    closed.wait(-1);
    const std::string other = dir / "other.json";
    write_file(other, small_topology(4));
    environment.set("VEX_BACKPLANE", "file:" + other);
    const ZentBpApiHandle next = open(on_change);
    EXPECT_EQ(bp_id(next), 4) << "a first session reads the settings anew";
    EXPECT_EQ(close(next), 0u);
    EXPECT_EQ(seen.systems, (Bytes{2, 3}));
}

TEST_F(LinuxBackplane, SessionsComeAndGoWhileTheTopologyChanges) {
    std::atomic<int> failures{0};
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 60; ++i) {
                const ZentBpApiHandle handle = open(t % 2 == 0 ? on_change : nullptr);
                failures += bp_id(handle) < 1 || (i % 10 == 0 && write(handle, 2, 1, 8) != 0);
                failures += close(handle) != 0;
            }
        });
    }
    for (int i = 1; i < 50; ++i) {
        replace(small_topology(i));
        std::this_thread::sleep_for(milliseconds{1});
    }
    threads.clear();
    EXPECT_EQ(failures, 0);
}

}  // namespace
