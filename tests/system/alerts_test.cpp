// The system event log: what the alerts of the shipped scenario leave there, and how it is read.
#include <map>
#include <regex>

#include "tests/system/tool_process.h"

namespace {

class EventLog : public ToolTest {
  protected:
    EventLog() { environment.set("VEX_EVENT_LOG", path); }

    static std::string record(int number) {
        return R"({"seq":)" + std::to_string(number) + R"(,"time":"T","kind":"single","value":7})";
    }

    const std::string path = dir / "events.log";
};

TEST_F(EventLog, OfTheShippedScenarioIsAsExpectedAndFitsATerminal) {
    ASSERT_EQ(vexsim("--quiet").status, 0);
    const std::string text = vexinspect("log").output;
    EXPECT_EQ(text, file_content(source_path("scenarios/expected/default.events")));
    EXPECT_FALSE(std::regex_search(text, std::regex("[^\n]{81}")));
}

// Every alert of the shipped scenario: what the rules say is what became of it.
TEST_F(EventLog, ExplainAgreesWithWhatBecameOfEveryAlert) {
    const std::string transcript = vexsim("").output;
    const std::regex alert(
        R"(alert (\S+) of (\S+): (\w+), (.*) \(arguments (\d), flags (\w+), phase (\w+)\))");
    std::map<std::string, int> seen;
    for (std::sregex_iterator at(transcript.begin(), transcript.end(), alert), end; at != end;
         ++at) {
        const std::smatch& words = *at;
        SCOPED_TRACE(words.str());
        const std::string text =
            vexinspect("explain " + words.str(1) + " --fqdd " + words.str(2) + " --args " +
                       words.str(5) + " --flags " + words.str(6) + " --phase " + words.str(7))
                .output;
        EXPECT_NE(text.find("\nverdict    " + words.str(3)), std::string::npos) << text;
        EXPECT_NE(text.find("\nrule       " + words.str(4) + "\n"), std::string::npos) << text;
        ++seen[words[3]];
    }
    EXPECT_EQ(seen,
              (std::map<std::string, int>{{"logged", 16}, {"suppressed", 4}, {"refused", 4}}));
}

TEST_F(EventLog, IsReadOverRotationsAndFollowed) {
    write_file(path + ".1", record(1) + "\n");
    write_file(path, record(2) + "\n" + record(3).substr(0, 20));
    EXPECT_EQ(vexinspect("log --json").output,
              R"({"format":"vexinspect.log","version":1, "records": [)"
              "\n " +
                  record(1) + ",\n " + record(2) + "\n]}\n");
    const std::string two = R"({"format":"vexinspect.log","version":1})"
                            "\n" +
                            record(1) + "\n" + record(2) + "\n";
    const pid_t follower = start("vexinspect log -f --json --records 4");
    EXPECT_EQ(vexinspect("log --follow --json --records 2").output, two);
    write_file(path, record(2) + "\n" + record(3) + "\n");
    std::filesystem::rename(path + ".1", path + ".2");
    std::filesystem::rename(path, path + ".1");
    write_file(path, record(4) + "\n");
    EXPECT_EQ(wait(follower).output, two + record(3) + "\n" + record(4) + "\n");
}

TEST_F(EventLog, WhatCannotBeShownIsSaid) {
    EXPECT_NE(vexinspect("log").output.find("no records\n"), std::string::npos);
    write_file(path, record(1) + "\n{\"seq\":2}\n");
    for (const auto& [arguments, status, complaint] : Rows<const char*, int, const char*>{
             {"log", 1, "events.log:2: this line is no record of an event log"},
             {"show fans", 2, "fans not in {inventory,"},
             {"--namespace no/name list", 1, "Invalid argument"},
             {"explain CTL1", 2, "--fqdd is required"},
             {"explain CTL1 --fqdd X --phase dead", 2, "--phase: expected live, inventory, "}}) {
        const ToolResult result = vexinspect(arguments);
        EXPECT_EQ(result.status, status);
        EXPECT_NE(result.errors.find(complaint), std::string::npos) << result.errors;
    }
}

}  // namespace
