// Events and alerts: what becomes of them on their way to the system event log.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <map>
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
    for (const auto& [what, steps, lines] : Rows<const char*, const char*, const char*>{
             {"callbacks",
              R"({"at": 1, "callback": {"type": 5, "payload": [7, 8]}},
                 {"at": 1, "callback": "poweron"},
                 {"at": 1, "callback": {"type": "endpoint-table", "payload": [9, 32, 40, 33]}},
                 {"at": 1, "callback": "lpc-reset"}, {"at": 1, "callback": "mctpd-stopped"},
                 {"at": 2, "alert": {"device": "RAID.Slot.3-1", "id": "CTL1",
                                     "args": ["a", "b"]}})",
              "callback type 5 (byte 7, first of 2): not known, ignored\n"
              "callback poweron: an inventory begins\n"
              "callback endpoint-table: 4 endpoints, new: 40, gone: 11\n"
              "callback lpc-reset: the host resets\n"
              "callback mctpd-stopped: no endpoint can be reached\n"
              "alert CTL1 of RAID.Slot.3-1: suppressed, inventory, and not on its pass list "
              "(arguments 2, flags 0x0020, phase 0x0020)\n"
              "alerts: 0 logged, 1 suppressed, 0 refused\n"},
             {"external disks behind an HBA",
              R"({"at": 1, "event": {"device": "Disk.Enclosure.External.0-0:NonRAID.Slot.7-1"}},
                 {"at": 2, "drain": "all"})",
              "event: changed Disk.Enclosure.External.0-0:NonRAID.Slot.7-1, not kept\n"},
             {"an endpoint that goes has its events worked off",
              R"({"at": 1, "event": {"device": "NVMe1", "alert": {"id": "PDR8"}}},
                 {"at": 2, "pull": "NVMe1"}, {"at": 3, "event": {"device": "NVMe1"}})",
              "event: changed NVMe1, recorded with PDR8\npull NVMe1\n"
              "PCIe SSD presence changed: bay 2, from global slot 0\n"
              "drain: endpoint 33, 1 events\n"
              "alert PDR8 of NVMe1: logged, neither inventory nor replay of past events "
              "(arguments 0, flags 0x0020, phase 0x0000)\n"
              "event: changed NVMe1, lost: endpoint 33 is not registered\n"
              "alerts: 1 logged, 0 suppressed, 0 refused\n"}}) {
        EXPECT_EQ(play(steps), lines);
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
    for (const auto& [step, complaint] : Rows<std::string, const char*>{
             {R"("callback": "reboot")", "callback: expected \"poweron\", "},
             {R"("callback": {"type": 4, "payload": [256]})",
              "callback.payload[0]: expected a whole"},
             {R"("event": {"device": "RAID.Slot.4-1"})", "event.device: expected the FQDD of"},
             {R"("event": {"device": "NVMe0", "alert": {"severity": 4, "id": "A"}})",
              "event.alert.severity: expected \"info\", \"warning\", \"critical\", or"},
             {R"("alert": {"device": "X", "id": "A", "args": ["a", "b", "c", "d", "e", "f"]})",
              "alert.args: expected at most 5 arguments"},
             {R"("alert": {"device": "X"})", "alert.id: missing"},
             {R"("drain": true)", "drain: expected 1 to 90 printable"},
             {R"("phase": "dead")", "phase: expected one of: live inventory reinventory past-"},
             {R"("reset": "NVMe0")", "reset: expected the FQDD of a controller"}}) {
        const ToolResult result = vexsim({scenario(R"({"at": 1, )" + step + "}")});
        EXPECT_EQ(result.status, 2);
        EXPECT_NE(result.errors.find(std::string("small.json:10: timeline[0].") + complaint),
                  std::string::npos)
            << result.errors;
    }
}

class EventLog : public ToolTest {
  protected:
    EventLog() { setenv("VEX_EVENT_LOG", path().c_str(), 1); }
    ~EventLog() override { unsetenv("VEX_EVENT_LOG"); }
    std::string path() const { return folder() + "/events.log"; }

    static std::string record(int number) {
        return R"({"seq":)" + std::to_string(number) + R"(,"time":"T","kind":"single","value":7})";
    }
};

TEST_F(EventLog, OfTheShippedScenarioIsAsExpectedAndFitsATerminal) {
    ASSERT_EQ(vexsim({"--quiet"}).status, 0);
    const std::string text = vexinspect({"log"}).output;
    EXPECT_EQ(text, file_content(source_path("tests/system/default.events")));
    EXPECT_FALSE(std::regex_search(text, std::regex("[^\n]{81}")));
    const std::string raw = file_content(path());
    const std::string json = vexinspect({"log", "--json"}).output;
    EXPECT_EQ(json,
              R"({"format":"vexinspect.log","version":1, "records": [)"
              "\n " +
                  std::regex_replace(raw.substr(0, raw.size() - 1), std::regex("\n"), ",\n ") +
                  "\n]}\n");
}

// Every alert of the shipped scenario: what the rules say is what became of it.
TEST_F(EventLog, ExplainAgreesWithWhatBecameOfEveryAlert) {
    const std::string transcript = vexsim({}).output;
    const std::regex alert(
        R"(alert (\S+) of (\S+): (\w+), (.*) \(arguments (\d), flags (\w+), phase (\w+)\))");
    const std::string log = file_content(path());
    std::map<std::string, int> seen;
    for (std::sregex_iterator at(transcript.begin(), transcript.end(), alert), end; at != end;
         ++at) {
        const std::smatch& words = *at;
        SCOPED_TRACE(words.str());
        const std::string text =
            vexinspect({"explain", words.str(1), "--fqdd", words.str(2), "--args", words[5],
                        "--flags", words[6], "--phase", words[7]})
                .output;
        EXPECT_NE(text.find("\nverdict    " + words.str(3)), std::string::npos) << text;
        EXPECT_NE(text.find("\nrule       " + words.str(4) + "\n"), std::string::npos) << text;
        ++seen[words[3]];
    }
    const auto lines = std::count(log.begin(), log.end(), '\n');
    EXPECT_EQ(seen["logged"] + 1, lines) << "and the notification of the cleared region";
    EXPECT_GE(seen["suppressed"], 4);
    EXPECT_GE(seen["refused"], 4);
}

TEST_F(EventLog, IsReadOverRotationsAndFollowed) {
    write_file("events.log.2", record(1) + "\n");
    write_file("events.log.1", record(2) + "\n");
    write_file("events.log", record(3) + "\n" + record(4).substr(0, 20));
    const std::string header = R"({"format":"vexinspect.log","version":1})"
                               "\n";
    const std::string three = record(1) + "\n" + record(2) + "\n" + record(3) + "\n";
    RunningTool follower("vexinspect", {"log", "-f", "--json", "--records", "5"}, folder());
    EXPECT_EQ(vexinspect({"log", "--follow", "--json", "--records", "3"}).output, header + three);
    write_file("events.log", record(3) + "\n" + record(4) + "\n");
    for (const auto& [from, to] : {std::pair(".2", ".3"), {".1", ".2"}, {"", ".1"}}) {
        rename((path() + from).c_str(), (path() + to).c_str());
    }
    write_file("events.log", record(5) + "\n");
    EXPECT_EQ(follower.wait().output, header + three + record(4) + "\n" + record(5) + "\n");
}

TEST_F(EventLog, WhatCannotBeShownIsSaid) {
    EXPECT_EQ(vexinspect({"log"}).status, 0);
    EXPECT_NE(vexinspect({"log"}).output.find("no records\n"), std::string::npos);
    EXPECT_EQ(vexinspect({"log", "--json"}).output,
              R"({"format":"vexinspect.log","version":1, "records": []})"
              "\n");
    write_file("events.log", record(1) + "\n{\"seq\":2}\n");
    const std::string none = folder() + "/none", explain = "explain CTL1 --fqdd X ";
    for (const auto& [arguments, status, complaint] : Rows<std::string, int, const char*>{
             {"log", 1, "events.log:2: this line is no record of an event log"},
             {"log --file " + none, 1, "/none: there is no such event log"},
             {"log --file " + folder(), 1, "vexinspect: "},
             {"explain CTL1", 2, "--fqdd is required"},
             {explain + "--args 6", 2, "--args"},
             {explain + "--phase dead", 2,
              "--phase: expected live, inventory, reinventory, past-events, or a number such as "},
             {explain + "--flags 0x10000", 2, "--flags: expected a number"}}) {
        const ToolResult result = vexinspect(words(arguments));
        EXPECT_EQ(result.status, status);
        EXPECT_NE(result.errors.find(complaint), std::string::npos) << result.errors;
    }
}

}  // namespace
