#include "platform/bpapi.h"
#include "tests/support/linux_test.h"

#include <semaphore>

namespace {

// The debug log reads its settings once; the cases below read its lines.
[[maybe_unused]] const int kDebugLogToStderr = setenv("VEX_DEBUG_LOG", "stderr", 1);

/* What the callbacks saw. Callbacks carry no data of their own, so there is one for all. */
struct Seen {
    Bytes systems = {};       // bpId of bay 0 at each callback
    milliseconds pause = {};  // taken in each
    std::atomic<int> returned = 0;
} seen;
std::counting_semaphore<> called{0};

void on_change(const BpApiInfo* info) {
    seen.systems.push_back(static_cast<uint8_t>(info->bays[0].bpId));
    called.release();
    std::this_thread::sleep_for(seen.pause);
    ++seen.returned;
}

bool wait_for_callback() {
    return called.try_acquire_for(seconds{10});
}

/* A topology of one bay with two slots; its bpId tells one content from another. */
std::string small_topology(int bp_id, const char* drives = R"({"slot":0},{"slot":1})") {
    return R"({"systemId":215,"bays":[{"bayId":2,"technology":"nvme","physicalSlots":2,"bpId":)" +
           std::to_string(bp_id) + R"(,"drives":[)" + drives + "]}]}\n";
}

class LinuxBackplane : public testing::Test {
  protected:
    LinuxBackplane() {
        environment.set("VEX_BACKPLANE", "file:" + file);
        replace(small_topology(1));
        seen.systems.clear();
        seen.pause = {};
        seen.returned = 0;
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
        return text;
    }

    TempDir dir;
    Environment environment;
    std::string file = dir / "backplane.json";
};

TEST_F(LinuxBackplane, EncodesTheExampleByteForByte) {
    environment.set("VEX_BACKPLANE", std::string{"file:"} + VEX_SCENARIOS + "/backplane.json");
    Bytes actual(BPAPI_INFO_SIZE + 1, 0xEE);
    const ZentBpApiHandle handle = open();
    EXPECT_EQ(ZentBpApiReadExec(handle, actual.data(), "", "", 0), 0u);
    EXPECT_EQ(close(handle), 0u);
    EXPECT_EQ(Zent_get_system_id(), 100u);
    for (const auto& [what, offset, bytes] : Rows<const char*, int, Bytes>{
             // bays, drives as printed, drives, -, risers
             {"counts", 4, {3, 5, 5, 0, 2}},
             // inventoried, -, bpId, downstream count
             {"bay 0", 80, {1, 0, 0x02, 0x03, 1}},
             // downstream ids, bay id, technology, RAID management, carrier, controller bay
             {"bay 0, ids", 97, {3, 0, 0, 0, 2, 1, 2, 1, 0}},
             // PCIe slots, slots cabled to a KRON controller
             {"bay 1, maps", 213, {8, 0, 0, 0, 4, 0, 0, 0x80}},
             // bay id, technology, -, -, controller bay, second id
             {"bay 1, ids", 228, {1, 1, 0, 0, 2, 4}},
             {"bay 1, primary, physical and logical slots", 246, {1, 4, 6}},
             {"bay 1, drives that are there", 250, {2}},
             {"bay 1, firmware, component", 257, {2, 0x31, 0xAB, 0x34, 0x12}},
             {"bay 1, slot offset", 268, {2}},
             // id, sensor, bay, slot, controller slot, -, extender slot, -, -, -, technology,
             // state, -, -, -, whether there is a bus, bus
             {"drive 3", 889, {40, 97, 1, 2, 2, 0, 3, 0, 0, 0, 1, 1, 0, 0, 0, 1, 65}},
             {"drive 4", 907, {4, 0, 1, 3, 3, 0, 3, 48, 0, 0, 4, 0x01, 0x02}},
             // present, bay, type, PCIe slot, number
             {"riser 0", 5334, {1, 1, 4, 3, 1}},
             {"behind the snapshot", BPAPI_INFO_SIZE, {0xEE}}}) {
        const auto at = actual.begin() + offset;
        EXPECT_EQ(Bytes(at, at + static_cast<int>(bytes.size())), bytes);
    }
}

TEST_F(LinuxBackplane, NamesFileLineAndFieldOfAMistake) {
    const std::string bay = R"({"bayId":0,"technology":"sas","physicalSlots":2})";
    // complaint: behind the file's name
    for (const auto& [row_content, row_complaint] : Rows<std::string, const char*>{
             {"", ":1: "},
             {"{\"systemId\": 1,\n\"systemId\": 1}", ":2: systemId: given twice"},
             {"{\"bays\": [\n{\"technology\": 1}]}",
              ":2: bays[0].bayId: missing: expected a whole number from 0 to 254"},
             {"{\"bays\": [" + bay + ",\n" + bay + "]}",
              ":2: bays[1].bayId: expected a number that no other bay has"},
             {R"({"bays": [{"bayId":0,"technology":"sata"}]})",
              ":1: bays[0].technology: expected \"nvme\""},
             {R"({"bays": [{"bayId":0,"technology":1,"physicalSlots":2,"nvmeKronSlots":[1,32]}]})",
              ":1: bays[0].nvmeKronSlots[1]: expected a whole number from 0 to 31"},
             {small_topology(1, "{\"slot\":1},\n{\"slot\":1}"),
              ":2: bays[0].drives[1].slot: expected a slot that holds no other drive"},
             {R"({"risers": [{"bayId": 1, "pcieSlot": 1}]})",
              ":1: risers[0].bayId: expected the id of one of the bays"},
         }) {
        const std::string complaint = complaint_about(row_content);
        EXPECT_NE(complaint.find(file + row_complaint), std::string::npos)
            << complaint << "expected " << row_complaint;
    }
}

TEST_F(LinuxBackplane, HasNoSessionWithoutABackplane) {
    for (const auto& [mode, complaint] : Rows<const char*, const char*>{
             {"none", "no backplane"},
             {"sysfs", "VEX_BACKPLANE=sysfs is not available in this build"},
             {"file:", "expected file:PATH or none"},
             {"file:/nonexistent/backplane.json", "/nonexistent/backplane.json: No such file"}}) {
        environment.set("VEX_BACKPLANE", mode);
        EXPECT_NE(complaint_about("{}").find(complaint), std::string::npos) << mode;
        EXPECT_EQ(Zent_get_system_id(), 0u);
    }
}

TEST_F(LinuxBackplane, CallsBackOncePerChange) {
    const ZentBpApiHandle handle = open(on_change);
    const ZentBpApiHandle reader = open();
    EXPECT_EQ(bp_id(reader), 1);
    replace(small_topology(2));
    EXPECT_EQ(bp_id(reader), 2) << "a read never waits for the watcher";
    EXPECT_TRUE(wait_for_callback());
    write_file(file, small_topology(3));
    EXPECT_TRUE(wait_for_callback()) << "written in place";
    replace(small_topology(3) + "\n");  // another text, the same topology
    replace("{");
    EXPECT_EQ(bp_id(reader), 3) << "a bad file changes nothing";
    replace(small_topology(4));
    EXPECT_TRUE(wait_for_callback());

    EXPECT_EQ(close(handle), 0u);
    replace(small_topology(5));
    EXPECT_EQ(bp_id(reader), 5);
    EXPECT_EQ(close(reader), 0u);
    EXPECT_NE(close(reader), 0u) << "no session any more";
    EXPECT_EQ(bp_id(reader), -1);
    EXPECT_EQ(seen.systems, (Bytes{2, 3, 4}));
    EXPECT_EQ(Zent_get_system_id(), 215u) << "also without a session";
}

TEST_F(LinuxBackplane, KeepsDriveStatesWhereOtherProcessesReadThem) {
    const std::string states = dir / "states";
    environment.set("VEX_BACKPLANE_STATE", states);
    EXPECT_TRUE(succeeded(in_child([] {
        const ZentBpApiHandle own = open();
        return own != nullptr && write(own, 2, 1, 8) == 0 && close(own) == 0;
    })));
    const ZentBpApiHandle handle = open(on_change);
    EXPECT_EQ(write(handle, 2, 0, 8), 0u);
    EXPECT_EQ(write(handle, 2, 0, 0x101), 0u);
    const uint32_t refused = write(handle, 2, 2, 8);
    EXPECT_NE(refused & 0xFF, 0u) << "a slot that is not there";
    EXPECT_NE(ZentBpApiError(refused), nullptr);
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
    EXPECT_TRUE(wait_for_callback());
    EXPECT_EQ(content(), head + set) << "a drive that was taken out takes its state along";

    write_file(states, "{\"format\": 1");
    EXPECT_EQ(write(handle, 2, 1, 8), 0u) << "damaged states start anew";
    std::filesystem::remove(states);
    std::filesystem::create_directory(states);
    EXPECT_NE(write(handle, 2, 1, 8), 0u) << "nothing stored, nothing acknowledged";
    EXPECT_EQ(close(handle), 0u);
}

TEST_F(LinuxBackplane, CloseWaitsForARunningCallback) {
    seen.pause = milliseconds{100};
    const ZentBpApiHandle handle = open(on_change);
    replace(small_topology(2));
    EXPECT_TRUE(wait_for_callback());
    EXPECT_EQ(close(handle), 0u);
    EXPECT_EQ(seen.returned, 1);
}

}  // namespace
