// Events and alerts: what becomes of them on their way to the system event log.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "tests/system/tool_process.h"

namespace {

class Alerts : public ToolTest {
  protected:
    // A scenario of a RAID controller, an HBA with an external enclosure and an NVMe drive.
    std::string scenario(const std::string& steps) const {
        return write_file("small.json", R"({"vexsim": 1, "name": "small", "duration": 9,
            "controllers": [
                {"fqdd": "RAID.Slot.3-1", "eid": 9, "type": "kron",
                 "enclosures": [{"bay": 1, "drives": [{"slots": "0-1"}]}]},
                {"fqdd": "NonRAID.Slot.7-1", "eid": 11, "type": "hba", "enclosures": [
                    {"kind": "external", "drives": [{"slots": 0, "fqdd": "Disk.{enclosure}"}]}]}],
            "nvme": [{"bay": 2, "slots": "0-1", "firstEid": 32, "firstGlobalSlot": 0,
                      "fqdd": "NVMe{slot}"}],
            "timeline": [
)" + steps + "]}");
    }

    // What the steps led to, without times, shutdown and what came before.
    std::string play(const std::string& steps) {
        const ToolResult result = vexsim({scenario(steps)});
        EXPECT_EQ(result.status, 0) << result.errors;
        const std::string begin = "inventory done, live mode\n";
        const size_t from = result.output.find(begin);
        EXPECT_NE(from, std::string::npos) << result.output;
        std::string text = result.output.substr(from + begin.size());
        text = text.substr(0, text.rfind("     9.000  shutdown"));
        return std::regex_replace(text, std::regex(" +[0-9.]+  (.*\n)"), "$1");
    }
};

TEST_F(Alerts, TravelFromTheCallbackToTheLog) {
    const std::string disk = "Disk.Bay.0:Enclosure.Internal.0-1:RAID.Slot.3-1";
    const auto event = [](const std::string& device, const std::string& id,
                          const std::string& more = "") {
        return R"({"at": 1, "event": {"device": ")" + device + "\"" + more +
               ", \"alert\": {\"id\": \"" + id + "\"}}},";
    };
    const std::string drain = R"({"at": 2, "drain": "all"})";
    const std::string live =
        "neither inventory nor replay of past events "
        "(arguments 0, flags 0x0020, phase 0x0000)\n";
    const struct {
        const char* what;
        std::string steps;
        std::string lines;
    } rows[] = {
        {"callbacks",
         R"({"at": 1, "callback": {"type": 5, "payload": [7, 8]}}, {"at": 1, "callback": "poweron"},
            {"at": 1, "callback": {"type": "endpoint-table", "payload": [9, 32, 40, 33]}},
            {"at": 1, "callback": "lpc-reset"}, {"at": 1, "callback": "mctpd-stopped"},
            {"at": 2, "alert": {"device": "RAID.Slot.3-1", "id": "CTL1", "args": ["a", "b"]}})",
         "callback type 5 (byte 7, first of 2): not known, ignored\n"
         "callback poweron: an inventory begins\n"
         "callback endpoint-table: 4 endpoints, new: 40, gone: 11\n"
         "callback lpc-reset: the host resets\n"
         "callback mctpd-stopped: no endpoint can be reached\n"
         "alert CTL1 of RAID.Slot.3-1: suppressed, inventory, and not on its pass list "
         "(arguments 2, flags 0x0020, phase 0x0020)\n"
         "alerts: 0 logged, 1 suppressed, 0 refused\n"},
        {"what a disk of a controller has already is let go of",
         event(disk, "PDR4") + event(disk, "CTL48") + drain,
         "event: changed " + disk +
             ", recorded with PDR4\n"
             "event: changed " +
             disk +
             ", recorded with CTL48, in place of PDR4\n"
             "drain: endpoint 9, 1 events\n"
             "alert CTL48 of " +
             disk + ": logged, " + live + "alerts: 1 logged, 0 suppressed, 0 refused\n"},
        {"or freed",
         event("NVMe0", "PDR4") + event("NVMe0", "CTL48") + event(disk, "PDR3") +
             event(disk, "PDR5") + R"({"at": 2, "drain": "NVMe0"})",
         "event: changed NVMe0, recorded with PDR4\n"
         "event: changed NVMe0, recorded with CTL48, in place of PDR4\n"
         "event: changed " +
             disk +
             ", recorded with PDR3\n"
             "event: changed " +
             disk +
             ", recorded with PDR5, in place of PDR3\n"
             "drain: endpoint 32, 1 events\n"
             "alert CTL48 of NVMe0: logged, " +
             live + "alerts: 1 logged, 0 suppressed, 0 refused\n"},
        {"events that are held back wait for the purge, and keep their alerts",
         event(disk, "PDR1", ", \"held\": true") + event(disk, "PDR2", ", \"held\": true") +
             R"({"at": 1, "event": {"device": "RAID.Slot.3-1", "type": 7, "held": true}},)" +
             drain +
             R"(, {"at": 3, "purge": "RAID.Slot.3-1"}, {"at": 4, "drain": "RAID.Slot.3-1"})",
         "event: changed " + disk + ", held back\nevent: changed " + disk +
             ", held back\n"
             "event: type 7 RAID.Slot.3-1, held back\n"
             "purge: endpoint 9, 1 events and 1 disks\n"
             "drain: endpoint 9, 2 events\n"
             "no alert: type 7 object type 0 key 9\n"
             "alert PDR1 of " +
             disk + ": logged, " + live + "alert PDR2 of " + disk + ": logged, " + live +
             "alerts: 2 logged, 0 suppressed, 0 refused\n"},
        {"external disks behind an HBA",
         R"({"at": 1, "event": {"device": "Disk.Enclosure.External.0-0:NonRAID.Slot.7-1"}}, )" +
             drain,
         "event: changed Disk.Enclosure.External.0-0:NonRAID.Slot.7-1, not kept\n"},
        {"an endpoint that goes has its events worked off",
         event("NVMe1", "PDR8") +
             R"({"at": 2, "pull": "NVMe1"}, {"at": 3, "event": {"device": "NVMe1"}})",
         "event: changed NVMe1, recorded with PDR8\npull NVMe1\ndrain: endpoint 33, 1 events\n"
         "alert PDR8 of NVMe1: logged, " +
             live +
             "event: changed NVMe1, lost: endpoint 33 is not registered\n"
             "alerts: 1 logged, 0 suppressed, 0 refused\n"},
        {"a reset, until the phase is live",
         R"({"at": 1, "reset": "RAID.Slot.3-1"},
            {"at": 2, "alert": {"device": "RAID.Slot.3-1", "id": "CTL1", "args": ["a"]}},
            {"at": 3, "phase": "live"}, {"at": 4, "alert": {"device": "X", "id": "CTL1"}})",
         "reset of RAID.Slot.3-1: past events follow\n"
         "alert CTL1 of RAID.Slot.3-1: refused, replay of past events, and not on its pass list "
         "(arguments 1, flags 0x0000, phase 0x0000)\n"
         "phase live: flags 0x0020 phase 0x0000\n"
         "alert CTL1 of X: logged, " +
             live + "alerts: 1 logged, 0 suppressed, 1 refused\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(play(row.steps), row.lines);
    }
}

// The sanitizers of this build see whether what a full list drops is freed.
TEST_F(Alerts, AListThatIsFullStartsAgain) {
    const std::string text = play(
        R"({"at": 1, "times": 385, "every": 0.001, "event": {"device": "RAID.Slot.3-1", "type": 7,
            "alert": {"id": "CTL1"}}},
           {"at": 3, "times": 384, "every": 0.001, "event": {"device": "RAID.Slot.3-1", "type": 8,
            "held": true}},
           {"at": 4, "purge": "RAID.Slot.3-1"}, {"at": 5, "drain": "all"})");
    EXPECT_NE(text.find("recorded with CTL1, the list is full, older events are dropped\n"),
              std::string::npos);
    EXPECT_NE(text.find("purge: endpoint 9, 384 events and 0 disks, the list is full, older events "
                        "are dropped\ndrain: endpoint 9, 1 events\n"),
              std::string::npos);
}

TEST_F(Alerts, ABadStepIsNamedWithItsPlace) {
    const struct {
        const char* step;
        const char* complaint;
    } rows[] = {
        {R"("callback": "reboot")", "callback: expected \"poweron\", "},
        {R"("callback": {"type": 4, "payload": [256]})", "callback.payload[0]: expected a whole"},
        {R"("event": {"device": "RAID.Slot.4-1"})", "event.device: expected the FQDD of a device"},
        {R"("event": {"device": "NVMe0", "alert": {"severity": 4, "id": "A"}})",
         "event.alert.severity: expected \"info\", \"warning\", \"critical\", or"},
        {R"("alert": {"device": "X", "id": "A", "args": [1]})", "alert.args[0]: expected 1 to 199"},
        {R"("alert": {"device": "X", "id": "A", "args": ["a", "b", "c", "d", "e", "f"]})",
         "alert.args: expected at most 5 arguments"},
        {R"("alert": {"device": "X"})", "alert.id: missing"},
        {R"("purge": "nothing")", "purge: expected the FQDD of a device"},
        {R"("drain": true)", "drain: expected 1 to 90 printable"},
        {R"("phase": "dead")", "phase: expected one of: live inventory reinventory past-events"},
        {R"("reset": "NVMe0")", "reset: expected the FQDD of a controller"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.step);
        const ToolResult result = vexsim({scenario(R"({"at": 1, )" + std::string(row.step) + "}")});
        EXPECT_EQ(result.status, 2);
        EXPECT_NE(result.errors.find(std::string("small.json:10: timeline[0].") + row.complaint),
                  std::string::npos)
            << result.errors;
    }
}

}  // namespace
