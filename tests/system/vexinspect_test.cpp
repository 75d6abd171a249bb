// What another process sees of the regions.

#include <regex>

#include "tests/system/tool_process.h"
#include "vexinspect/layout_table.h"

namespace {

class Vexinspect : public ToolTest {
  protected:
    void play(const std::string& steps) {
        const std::string scenario = R"({"vexsim": 1, "name": "small", "duration": 10,
            "controllers": [{
                "fqdd": "RAID.Slot.3-1", "eid": 9, "type": "kron", "temperature": 61,
                "pci": {"slot": 3, "ids": [1, 2, 3, 4]}, "battery": {"temperature": 30},
                "enclosures": [{"bay": 1, "drives": [{"slots": "0-1", "with": {
                    "media": "ssd", "protocol": "sas", "sizeGB": 960, "temperature": 31}}]}]}],
            "timeline": [)" + steps + "]}";
        const ToolResult result = vexsim({write_file("small.json", scenario), "--keep"});
        ASSERT_EQ(result.status, 0) << result.errors;
    }
};

TEST_F(Vexinspect, JsonOfTheShippedScenarioIsAsExpected) {
    ASSERT_EQ(vexsim({"--quiet", "--keep"}).status, 0);
    const ToolResult result = vexinspect({"--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, file_content(source_path("tests/system/default.inventory.json")));
}

TEST_F(Vexinspect, EverythingFitsATerminal) {
    ASSERT_EQ(vexsim({"--quiet", "--keep"}).status, 0);
    for (const char* command : {"list", "show", "map", "fru"}) {
        const ToolResult result = vexinspect({command});
        EXPECT_EQ(result.status, 0);
        EXPECT_GT(std::ranges::count(result.output, '\n'), 4) << command;
        EXPECT_FALSE(std::regex_search(result.output, std::regex("[^\n]{81}"))) << result.output;
    }
}

TEST_F(Vexinspect, FruShowsControllersDrivesAndCards) {
    ASSERT_EQ(vexsim({"--quiet", "--keep"}).status, 0);
    const std::string shown = vexinspect({"fru"}).output;
    for (const char* line :
         {"Controller cards (3)", "259     0  present     48  TAVI-A2  TAVI-A2 boot storage",
          "PCIe SSD drives, by global slot (7)", "0001    NVMe SSD  Disk.Bay.6:Enclosure.",
          "PCIe SSD cards (1)", "NVMe SSD card  PCIeSSD.Slot.9-1", "PCIe SSD cards of kind 2 (1)",
          "NVMe boot card  PCIeSSD.Slot.10-1"}) {
        EXPECT_NE(shown.find(line), std::string::npos) << line << " not in\n" << shown;
    }
    EXPECT_EQ(shown.substr(shown.find("PCIe SSD drives")), vexinspect({"show", "frus"}).output);
}

TEST_F(Vexinspect, MapShowsWhatTheStateFolderTells) {
    const std::string state = folder() + "/state";
    ASSERT_EQ(vexsim({"--quiet", "--keep", "--state", state}).status, 0);
    const std::string map = vexinspect({"--state", state, "map"}).output;
    EXPECT_NE(map.find("|  NVMe  |* NVMe *|  NVMe  |  NVMe  |  NVMe  |   .    |\n"
                       "  | EID 32 | EID 33 | EID 34 | EID 35 | EID 36 | EID 37 | EID 38 |"),
              std::string::npos)
        << map;
    const std::string plain = vexinspect({"map"}).output;
    EXPECT_EQ(plain.find("EID"), std::string::npos);
    write_file("state/endpoints.json", R"({"format": 1, "endpoints": [{"eid": 1, "bay": 300}]})");
    const ToolResult bad = vexinspect({"--state", state, "map"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_NE(bad.errors.find("endpoints[0].bay: expected a whole number"), std::string::npos);
}

TEST_F(Vexinspect, WhatNobodyPublishedIsNotYetInventoried) {
    const char* const text = "not yet inventoried";
    for (const auto& arguments : std::vector<Lines>{{"list"},
                                                    {"show"},
                                                    {"map"},
                                                    {"fru"},
                                                    {"show", "drives"},
                                                    {"watch", "--updates", "1"}}) {
        SCOPED_TRACE(arguments.back());
        const ToolResult result = vexinspect(arguments);
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_NE(result.output.find(text), std::string::npos) << result.output;
    }
    const std::string json = vexinspect({"--json"}).output;
    EXPECT_NE(json.find("\"inventoried\": false"), std::string::npos);
    EXPECT_EQ(json.find("\"inventoried\": true"), std::string::npos);
}

TEST_F(Vexinspect, ACountOfMinusOneIsNotYetInventoriedEither) {
    play(R"({"at": 1, "poll": true}, {"at": 2, "reinventory": "begin"})");
    EXPECT_EQ(vexinspect({"show", "controllers", "drives"}).output,
              "Controllers\n  not yet inventoried\nDrives\n  not yet inventoried\n");
    EXPECT_NE(vexinspect({"show", "batteries"}).output.find("Batteries (1)"), std::string::npos);
    const std::string json = vexinspect({"--json"}).output;
    EXPECT_NE(json.find("\"controllers\": null"), std::string::npos) << json;
}

TEST_F(Vexinspect, TablesAndMapShowWhatAStepChanged) {
    play(R"({"at": 1, "poll": true},
            {"at": 2, "pull": "Disk.Bay.0:Enclosure.Internal.0-1:RAID.Slot.3-1"},
            {"at": 2, "set": {"device": "Disk.Bay.1:Enclosure.Internal.0-1:RAID.Slot.3-1",
                              "temperature": 77, "state": "failed"}},
            {"at": 2, "set": {"device": "RAID.Slot.3-1", "temperature": "none"}},
            {"at": 3, "poll": true})");
    EXPECT_EQ(vexinspect({"show", "controllers", "drives"}).output,
              "Controllers (1)\n"
              "  #  Kind  Slot  Card  Temp  Battery  PCI ids              Drive polling\n"
              "  0  KRON     3     0     -     30 C  0001:0002:0003:0004  on\n"
              "Drives (1)\n"
              " Enclosure.Internal.0-1:RAID.Slot.3-1\n"
              "  #  Drive       Bay  Slot  Kind        Size  Temp  Crit  Status\n"
              "  0  Disk.Bay.1    1     1  SAS SSD  894 GiB  77 C   0 C  0004\n");
    const std::string map = vexinspect({"map"}).output;
    EXPECT_NE(map.find("|   .    |SAS SSD |"), std::string::npos) << map;
}

TEST_F(Vexinspect, WrongUsageEndsWithStatus2) {
    for (const char* argument : {"shw", "--jsn"}) {
        EXPECT_EQ(vexinspect({argument}).status, 2) << argument;
    }
    EXPECT_EQ(vexinspect({"show", "fans"}).status, 2);
    EXPECT_EQ(vexinspect({"--namespace", "no/name", "list"}).status, 1);
}

TEST(LayoutTable, NamesEveryByteOfEveryRegionOnce) {
    for (const vexinspect::Region& region : vexinspect::regions()) {
        SCOPED_TRACE(region.title);
        std::vector<int> named(region.size, 0);
        for (const vexinspect::Field& field : region.fields) {
            for (uint32_t i = 0; i < field.count; ++i) {
                const uint32_t begin = field.offset + i * field.stride;
                ASSERT_LE(begin + field.length, region.size) << field.name;
                std::for_each(&named[begin], &named[begin] + field.length, [](int& n) { ++n; });
            }
        }
        const auto wrong = std::find_if(named.begin(), named.end(), [](int n) { return n != 1; });
        EXPECT_EQ(wrong, named.end())
            << "byte " << wrong - named.begin() << " of region " << region.id;
    }
}

}  // namespace
