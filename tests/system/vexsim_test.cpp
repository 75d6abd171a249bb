// The simulator: what it plays, what it refuses, what it leaves behind.

#include "tests/system/tool_process.h"

namespace {

class Vexsim : public ToolTest {
  protected:
    static std::string shipped(const std::string& name) {
        return file_content(source_path("scenarios/" + name));
    }

    // The shipped scenario with one text in place of another.
    std::string changed(const std::string& from, const std::string& to) const {
        std::string text = shipped("default.json");
        const size_t at = text.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        text.replace(at, from.size(), to);
        write_file("default.topology.json", shipped("default.topology.json"));
        return write_file("scenario.json", text);
    }
};

// Where the address sanitizer is built in, memory that the shutdown leaves behind is a failure too.
TEST_F(Vexsim, PlaysTheShippedScenarioAsExpectedAndCleansUp) {
    const ToolResult result = vexsim({});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, file_content(source_path("tests/system/default.transcript")));
    EXPECT_EQ(result.errors, "");
    EXPECT_FALSE(anything_published());
}

TEST_F(Vexsim, SeedDecidesWhatTheSensorsShow) {
    const auto inventory = [this](const std::string& seed) {
        EXPECT_EQ(vexsim({"--quiet", "--keep", "--seed", seed}).status, 0);
        return vexinspect({"--json"}).output;
    };
    const std::string first = inventory("7");
    EXPECT_EQ(inventory("7"), first);
    EXPECT_NE(inventory("8"), first);
}

TEST_F(Vexsim, RefusesABadScenarioBeforeAnythingIsPublished) {
    const Rows<const char*, const char*, const char*, const char*> rows{
        {"no JSON", "\"seed\": 20240101,", "\"seed\": ,", "scenario.json:5: "},
        {"a field of another name", "\"pollEvery\"", "\"pollevery\"",
         "scenario.json:7: pollevery: unknown field, expected one of: vexsim, name, "},
        {"a field that is missing", "\"eid\": 9,", "",
         "scenario.json:60: controllers[1].eid: missing, expected a whole number from 0 to "
         "254"},
        {"a text that is no number", "\"0x1F47\"", "\"1F47\"",
         "controllers[0].pci.ids[1]: expected a whole number from 0 to 65535, found \"1F47\""},
        {"a code without a name", "\"type\": \"hba\"", "\"type\": \"hbb\"",
         "controllers[3].type: expected \"kron\", \"kron-18\", \"hba\", "},
        {"an endpoint id of another device", "\"eid\": 9,", "\"eid\": 8,",
         "controllers[1].eid: expected an endpoint id that nothing else has"},
        {"slots that are none", "\"slots\": \"12-13\"", "\"slots\": \"13-12\"",
         "controllers[0].enclosures[0].drives[1].slots: expected slots such as"},
        {"a slot twice", "\"slots\": \"12-13\"", "\"slots\": \"11-13\"",
         "controllers[0].enclosures: expected an FQDD that nothing else has"},
        {"a template that is not there", "\"use\": \"m2\"", "\"use\": \"m3\"",
         "controllers[4].drives[0].use: expected the name of a template that stands above"},
        {"a step about a device that is not there",
         "{ \"at\": 100, \"pull\": \"Disk.Bay.5:", "{ \"at\": 100, \"pull\": \"Disk.Bay.15:",
         "timeline[3].pull: expected the FQDD of a drive of this scenario"},
        {"a step without an action", "{ \"at\": 70, \"note\": \"A disk warms up.\" }",
         "{ \"at\": 70 }", "timeline[0]: expected an action such as"},
        {"a step after the end", "\"at\": 210, \"plug\"", "\"at\": 301, \"plug\"",
         "timeline[8].at: expected a time within the scenario's duration"},
        {"a drive that is pulled already", "\"plug\": \"Disk.Bay.6:", "\"pull\": \"Disk.Bay.6:",
         "timeline[8]: this drive is already pulled at that time"},
        {"a step about a controller that was dropped", "\"at\": 300, \"drop\"",
         "\"at\": 180, \"drop\": \"RAID.Slot.3-1\" }, { \"at\": 300, \"pull\": \"Disk.Bay.1:"
         "Enclosure.Internal.0-1:RAID.Slot.3-1\" }, { \"at\": 300, \"drop\"",
         "]: this controller is already dropped at that time"},
        {"a job for nobody", "[\"RAID.Slot.3-1\", \"TAVI.Integrated.1-1\"]", "[]",
         ".job: expected FQDDs of controllers, or \"end\""},
        {"a topology that is not there", "default.topology.json", "no.topology.json",
         "no.topology.json: cannot be opened: No such file or directory"}};
    for (const auto& [what, row_from, to, complaint] : rows) {
        const ToolResult result = vexsim({changed(row_from, to)});
        EXPECT_EQ(result.status, 2);
        EXPECT_NE(result.errors.find(complaint), std::string::npos) << result.errors;
        EXPECT_EQ(result.output, "");
    }
    EXPECT_FALSE(anything_published());
}

TEST_F(Vexsim, ADroppedCardLeavesTheRegion) {
    const auto cards = [this](const std::string& scenario) {
        EXPECT_EQ(vexsim({scenario, "--quiet", "--keep"}).status, 0);
        const std::string shown = vexinspect({"fru"}).output;
        return shown.substr(shown.find("PCIe SSD cards"));
    };
    const std::string scenario = changed("\"seed\": 20240101,", "");
    const std::string kept = cards(scenario);
    EXPECT_NE(kept.find("PCIe SSD cards (1)"), std::string::npos) << kept;
    const std::string left =
        cards(changed("\"drop\": \"NonRAID.Slot.7-1\"", "\"drop\": \"PCIeSSD.Slot.9-1\""));
    EXPECT_NE(left.find("PCIe SSD cards (0)"), std::string::npos) << left;
    EXPECT_EQ(left.find("Slot.9"), std::string::npos) << left;
}

TEST_F(Vexsim, RefusesABadTopologyWithItsOwnPlace) {
    const std::string scenario = changed("\"seed\": 20240101,", "");
    std::string topology = shipped("default.topology.json");
    topology.replace(topology.find("\"slot\": 1 }"), 11, "\"slot\": 16 }");
    write_file("default.topology.json", topology);
    const ToolResult result = vexsim({scenario});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.errors.find("default.topology.json:14: bays[0].drives[1].slot: expected"),
              std::string::npos)
        << result.errors;
    EXPECT_FALSE(anything_published());
}

TEST_F(Vexsim, EndsCleanlyOnASignal) {
    RunningTool running("vexsim", {"--hold", "1000"}, folder());
    for (int tries = 0; tries < 600 && !anything_published(); ++tries) {
        usleep(100'000);
    }
    running.send(SIGTERM);
    const ToolResult result = running.wait();
    EXPECT_EQ(result.status, 130) << result.errors;
    EXPECT_NE(result.output.find("shutdown"), std::string::npos);
    EXPECT_FALSE(anything_published());
}

TEST_F(Vexsim, FailsWithStatus1WhenPlayingFails) {
    const ToolResult command = vexsim({"--quiet", "--after-poll", "test $VEXSIM_POLL != 3"});
    EXPECT_EQ(command.status, 1);
    EXPECT_NE(command.errors.find("vexsim: the command of --after-poll failed"), std::string::npos);
    EXPECT_FALSE(anything_published());
    EXPECT_EQ(vexsim({"--transcript", "/no/folder/transcript"}).status, 1);
    setenv("VEX_BACKPLANE_STATE", "/no/folder/states", 1);
    const ToolResult light = vexsim({"--quiet"});
    unsetenv("VEX_BACKPLANE_STATE");
    EXPECT_EQ(light.status, 1);
    EXPECT_EQ(light.errors, "vexsim: BlinkNVMeSSD returned 1\n");
}

}  // namespace
