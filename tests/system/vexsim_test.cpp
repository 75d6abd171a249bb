// The simulator: what it plays, what it refuses, what it leaves behind.

#include "tests/system/tool_process.h"

namespace {

class Vexsim : public ToolTest {
  protected:
    // The shipped scenario with one text in place of another.
    std::string changed(const std::string& from, const std::string& to) const {
        std::string text = file_content(source_path("scenarios/default.json"));
        const size_t at = text.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        text.replace(at, from.size(), to);
        write_file(dir / "default.topology.json",
                   file_content(source_path("scenarios/default.topology.json")));
        write_file(dir / "scenario.json", text);
        return dir / "scenario.json";
    }
};

// Where the address sanitizer is built in, memory that the shutdown leaves behind is a failure too.
TEST_F(Vexsim, PlaysTheShippedScenarioAndCleansUp) {
    const ToolResult result = vexsim("");
    EXPECT_EQ(result.status, 0) << result.errors;
    size_t at = 0;
    for (const char* line :
         {"  0.000  poll 1: 5 controllers, 41 drives, 2 batteries, tape present, inventory ",
          "100.000  hot-plug: the backplane service asks for a new inventory of: HBA KRON ",
          ":RAID.Integrated.1-1, recorded with PDR5, in place of PDR3\n",
          "105.000  no alert: changed object type 3 key 12\n",
          "163.000  purge: endpoint 9, 1 events and 2 disks\n",
          "180.000  poll 4: 4 controllers, 37 drives, 2 batteries, tape not known yet, ",
          "210.000  endpoint 38: nvme Disk.Bay.6:Enclosure.Internal.0-2:PCIeExtender.Slot.4\n",
          "220.000  Disk.Bay.5:Enclosure.Internal.0-2:PCIeExtender.Slot.4: blinks at the ",
          "230.000  job: concerns RAID.Slot.3-1 and 14 drives\n",
          "271.000  NonRAID.Slot.7-1: command failed, 10 failed in a row, communication lost\n",
          "300.000  endpoint 11: dropped with 3 drives\n",
          "300.000  alerts: 16 logged, 4 suppressed, 4 refused\n", "300.000  shutdown\n"}) {
        const size_t found = result.output.find(line, at);
        ASSERT_NE(found, std::string::npos) << line << " not in\n" << result.output.substr(at);
        at = found;
    }
    EXPECT_FALSE(anything_published());
}

TEST_F(Vexsim, RefusesABadScenarioBeforeAnythingIsPublished) {
    const std::string note = "\"note\": \"A disk warms up.\"";
    for (const auto& [what, from, to, complaint] :
         Rows<const char*, std::string, const char*, const char*>{
             {"no JSON", "\"seed\": 20240101,", "\"seed\": ,", "scenario.json:5: "},
             {"a field of another name", "\"pollEvery\"", "\"pollevery\"",
              "scenario.json:7: pollevery: unknown field, expected one of: vexsim, name, "},
             {"a field that is missing", "\"eid\": 9,", "",
              "scenario.json:60: controllers[1].eid: missing, expected a whole number from 0 to "},
             {"an endpoint id of another device", "\"eid\": 9,", "\"eid\": 8,",
              "controllers[1].eid: expected an endpoint id that nothing else has"},
             {"slots that are none", "\"slots\": \"12-13\"", "\"slots\": \"13-12\"",
              "controllers[0].enclosures[0].drives[1].slots: expected slots such as"},
             {"a step about a device that is not there", note, "\"pull\": \"Disk.Bay.15\"",
              "timeline[0].pull: expected the FQDD of a drive of this scenario"},
             {"a callback without a name", note, "\"callback\": \"reboot\"",
              "timeline[0].callback: expected \"poweron\", "},
             {"an alert without an id", note, "\"alert\": {\"device\": \"X\"}",
              "timeline[0].alert.id: missing"},
             {"a topology that is not there", "default.topology.json", "no.topology.json",
              "no.topology.json: cannot be opened: No such file or directory"}}) {
        const ToolResult result = vexsim(changed(from, to));
        EXPECT_EQ(result.status, 2);
        EXPECT_NE(result.errors.find(complaint), std::string::npos) << result.errors;
        EXPECT_EQ(result.output, "");
    }
    EXPECT_FALSE(anything_published());
}

TEST_F(Vexsim, EndsCleanlyOnASignal) {
    const pid_t running = start("vexsim --hold 1000");
    for (int tries = 0; tries < 600 && !anything_published(); ++tries) {
        usleep(100'000);
    }
    kill(running, SIGTERM);
    EXPECT_EQ(wait(running).status, 130);
    EXPECT_FALSE(anything_published());
}

TEST_F(Vexsim, FailsWithStatus1WhenPlayingFails) {
    const ToolResult command = vexsim("--quiet --after-poll 'test $VEXSIM_POLL != 3'");
    EXPECT_EQ(command.status, 1);
    EXPECT_NE(command.errors.find("vexsim: the command of --after-poll failed"), std::string::npos);
    EXPECT_FALSE(anything_published());
}

}  // namespace
