// Every scenario with its n-th allocation failing, for every n, once and from there on; the same
// with its n-th call to the platform or the C library; and random pairs of both. Each time: a
// promised result, nothing held or leaked, a valid state, and the same call succeeds afterwards.
// What each gives, costs and logs stands in the file transcripts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <regex>
#include <set>

#include "internal/vexel_state.h"
#include "tests/faults/scenario.h"
#include "tests/support/files.h"

// Half a million blocks a second: no long stacks for them.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
    return "malloc_context_size=4:quarantine_size_mb=8";
}

namespace faults {
namespace {

using fake::Place;

Scenarios all_scenarios() {
    Scenarios all;
    base_scenarios(all);
    cache_scenarios(all);
    region_scenarios(all);
    return all;
}

struct Fault {
    int n = 0;  // 0: none
    bool lasting = false;
};

struct Trial {
    bool allocation_failed, call_failed;
    int allocations, calls;
};

// Formatted lines read what they tell of.
int64_t run(const Scenario& scenario,
            fake::Platform::Lines lines = fake::Platform::Lines::Formatted) {
    const bool locked =
        scenario.promise.holds_cache && SMMutexLock(mutexRtCache, SM_WAIT_FOREVER) == 0;
    fake::platform().treat_lines(lines);
    int64_t result;
    {
        const fake::AllocationScope scope;
        result = scenario.run();
    }
    fake::platform().treat_lines(fake::Platform::Lines::Dropped);
    if (locked) {
        SMMutexUnLock(mutexRtCache);
    }
    return result;
}

Trial attempt(const Scenario& scenario, Fault allocation, Fault call) {
    SCOPED_TRACE(testing::Message() << scenario.what << ": allocation " << allocation.n << ", call "
                                    << call.n << (allocation.lasting ? " for good" : ""));
    fake::Platform& platform = fake::platform();
    const Holdings before = holdings();
    Trial trial{};
    {
        const World world;
        Holdings standing = holdings();
        platform.fail(Place::Allocation, allocation.n, allocation.lasting);
        platform.fail(Place::AnyCall, call.n, call.lasting);
        const int64_t result = run(scenario);
        platform.no_faults();
        trial = {platform.fault_fired(Place::Allocation), platform.fault_fired(Place::AnyCall),
                 platform.calls(Place::Allocation), platform.calls(Place::AnyCall)};
        const bool failed = trial.allocation_failed || trial.call_failed;
        const bool may_fail = failed && !scenario.promise.failed.empty();
        EXPECT_TRUE(may_fail ? std::ranges::count(scenario.promise.failed, result) != 0
                             : result == scenario.promise.done)
            << "result " << result;
        EXPECT_EQ(holdings()["locks"], standing["locks"]);
        EXPECT_EQ(holdings()["lowest free descriptor"], standing["lowest free descriptor"]);
        if (failed) {
            EXPECT_EQ(run(scenario), scenario.promise.done)
                << "the same call again, without a failure";
        }
    }
    EXPECT_EQ(holdings(), before) << "what is left";
    return trial;
}

// A number of the environment's, of the longer harnesses.
int number_of(const char* variable, int usual) {
    const char* text = std::getenv(variable);
    return text != nullptr ? std::atoi(text) : usual;
}

struct Figures {
    int allocations = 0, calls = 0, pairs = 0;
};

// Fails the n-th for every n, until a run has none.
int sweep(const Scenario& scenario, bool of_allocations, bool lasting) {
    int injected = 0;
    for (; !testing::Test::HasFailure(); ++injected) {
        const Fault fault{injected + 1, lasting};
        const Trial trial =
            of_allocations ? attempt(scenario, fault, {}) : attempt(scenario, {}, fault);
        if (!(of_allocations ? trial.allocation_failed : trial.call_failed)) {
            break;
        }
    }
    return injected;
}

// Random pairs in the scenarios that have both.
Figures sweep_pairs(const Scenarios& scenarios, int count, unsigned seed) {
    std::vector<Trial> sizes;
    std::vector<double> weights;
    for (const Scenario& scenario : scenarios) {
        sizes.push_back(attempt(scenario, {}, {}));
        weights.push_back(std::min(1.0 * sizes.back().allocations * sizes.back().calls, 20.0));
    }
    std::mt19937 random{seed};
    const auto pick = [&random](int limit) {
        return Fault{1 + static_cast<int>(random() % static_cast<unsigned>(limit)),
                     random() % 2 == 0};
    };
    std::discrete_distribution<size_t> choice{weights.begin(), weights.end()};
    Figures figures;
    for (; figures.pairs < count && !testing::Test::HasFailure(); ++figures.pairs) {
        const size_t i = choice(random);
        const Fault allocation = pick(sizes[i].allocations);
        const Trial trial = attempt(scenarios[i], allocation, pick(sizes[i].calls));
        figures.allocations += trial.allocation_failed;
        figures.calls += trial.call_failed;
    }
    return figures;
}

TEST(Faults, EveryNthFailureIsSurvived) {
    const Scenarios scenarios = all_scenarios();
    Figures figures = sweep_pairs(scenarios, number_of("VEX_TEST_PAIRS", EMULATED ? 200 : 28'000),
                                  static_cast<unsigned>(number_of("VEX_TEST_SEED", 1)));
    for (const Scenario& scenario : scenarios) {
        for (const bool lasting : {false, true}) {
            figures.allocations += sweep(scenario, true, lasting);
            figures.calls += sweep(scenario, false, lasting);
        }
    }
    std::printf("figures: R1 scenarios=%zu allocation_failures=%d\n", scenarios.size(),
                figures.allocations);
    std::printf("figures: R2 platform_failures=%d pairs=%d\n", figures.calls, figures.pairs);
}

TEST(Faults, LivesDoNotGrow) {
    const int goal = number_of("VEX_TEST_LIVES", EMULATED ? 1'000 : 10'000);
    const Scenarios scenarios = all_scenarios();
    const Holdings before = holdings();
    int lives = 0;
    for (; lives < goal && !testing::Test::HasFailure(); ++lives) {
        {
            const World world;
            const Scenario& scenario = scenarios[static_cast<size_t>(lives) % scenarios.size()];
            EXPECT_EQ(run(scenario), scenario.promise.done) << scenario.what;
        }
        EXPECT_EQ(holdings(), before) << "after life " << lives;
    }
    std::printf("figures: R8 lives=%d\n", lives);
}

// The log is on, and its file whole, missing, on a full disk or a folder; the clock at the ends of
// 32 bits, and set back.
TEST(Faults, ClocksAndDisksChangeNoResult) {
    const std::string log = file("clock.log", ""), no_flag = log + ".none";
    const std::string paths[] = {log, log + "/missing", "/dev/full", testing::TempDir()};
    int calls = 0;
    std::map<std::string, uint32_t> depths;  // each file starts afresh by its own lines
    for (const time_t now : {0x7FFFFFFFll, 0x80000000ll, 0xFFFFFFFFll, 5ll}) {
        for (const std::string& path : paths) {
            for (const Scenario& scenario : all_scenarios()) {
                {
                    SCOPED_TRACE(testing::Message() << scenario.what << " " << now << " " << path);
                    const World world;
                    vexutils::flag_paths.log_disabled = no_flag.c_str();
                    vexutils::log_state.file = vexutils::LogFile::NotChecked;
                    vexutils::log_state.depth = depths[path];
                    pRTLogPath = path.c_str();
                    clock_reads = now;
                    const bool asks_for_log = std::string_view{scenario.what} == "log flag";
                    EXPECT_TRUE(run(scenario) == scenario.promise.done || asks_for_log);
                    clock_reads = 0;
                }
                depths[path] = vexutils::log_state.depth;
                ++calls;
            }
        }
    }
    const std::regex whole{
        R"(\(T:[0-9A-F]{8}\) \d\d-\d\d \d\d:\d\d:\d\d \[\w+\] .*|[0-9a-f]{6}: .*)"};
    std::ifstream lines{log};
    int count = 0;
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(std::regex_match(line, whole)) << line;
        count += line.starts_with("(T:");  // dumps do not count
    }
    EXPECT_TRUE(count > 0 && count <= 1000) << count;
    std::printf("figures: R17 clock_and_disk_calls=%d\n", calls);
}

// A line as it stands in a transcript.
std::string told(const fake::LogLine& line) {
    static const std::regex repeats{"(\\S+ ?)\\1{19,}"}, newline{"\n"};
    const std::string text = std::regex_replace(fake::lasting_part(line), repeats, "$1...");
    return std::to_string(line.level) + " " + std::regex_replace(text, newline, "\\n");
}

// Results one after the other, each with how often it comes.
std::string counted(const std::vector<int64_t>& results) {
    std::ostringstream text;
    for (auto at = results.begin(); at != results.end();) {
        const auto end = std::find_if(at, results.end(), [at](auto other) { return other != *at; });
        text << ' ' << *at << '*' << end - at;
        at = end;
    }
    return text.str();
}

// What a scenario gives, costs and logs; behind "!" what else it logs when any allocation or call
// fails, what it gives each time, and all lines of these. Lines are nearly all of an operation's
// time, so a line more is slower code.
std::string transcript_of(const Scenario& scenario) {
    fake::Platform& platform = fake::platform();
    std::ostringstream text;
    std::set<std::string> said;
    std::vector<int64_t> results;
    size_t lines = 0;
    const auto play = [&](Place place, int n) {
        const World world;
        for (const Place each : {Place::Allocation, Place::AnyCall}) {
            platform.fail(each, each == place ? n : 0);
        }
        const int64_t result = run(scenario, fake::Platform::Lines::Recorded);
        if (n == 0) {
            text << scenario.what << ": " << result << ", " << platform.calls(Place::Allocation)
                 << " allocations, " << platform.calls(Place::AnyCall) << " calls, "
                 << platform.lines().size() << " lines";
        }
        std::string last;
        for (const fake::LogLine& line : platform.lines()) {
            if (n == 0 || said.insert(line.message).second) {
                const std::string lasting = told(line);
                const bool is_new = said.insert(lasting).second;
                text << (is_new || (n == 0 && lasting != last) ? " | " + lasting : "");
                last = lasting;
            }
        }
        const bool failed = n != 0 && platform.fault_fired(place);
        if (failed) {
            results.push_back(result);
            lines += platform.lines().size();
        }
        return failed;
    };
    play(Place::Count, 0);
    text << " !";
    for (const Place place : {Place::Allocation, Place::AnyCall}) {
        for (int n = 1; !EMULATED && play(place, n); ++n) {
        }
    }
    text << (EMULATED ? "" : " !" + counted(results) + " " + std::to_string(lines) + " lines");
    return text.str();
}

// With VEX_TEST_RECORD they are stored anew there.
TEST(Faults, EveryOperationDoesWhatIsStored) {
    const char* record = std::getenv("VEX_TEST_RECORD");
    std::ofstream recorded{record != nullptr ? record : "/dev/null"};
    std::ifstream stored{SOURCE_FOLDER "/tests/faults/transcripts"};
    for (const Scenario& scenario : all_scenarios()) {
        const std::string text = transcript_of(scenario);
        recorded << text << '\n';
        std::string expected;
        std::getline(stored, expected);
        const bool same = EMULATED ? expected.starts_with(text) : expected == text;
        EXPECT_TRUE(same || record != nullptr) << text << "\nstored:\n" << expected;
    }
    EXPECT_EQ(stored.peek(), EOF) << "stored, and done by no scenario";
}

std::set<std::string> words_of(const std::string& text, const char* pattern) {
    const std::regex word{pattern};
    std::set<std::string> words;
    for (std::sregex_iterator i{text.begin(), text.end(), word}; i != std::sregex_iterator{}; ++i) {
        words.insert((*i)[1]);
    }
    return words;
}

TEST(Faults, EveryExportedFunctionHasAScenario) {
    std::string headers, sources;
    for (const auto& entry : std::filesystem::directory_iterator{SOURCE_FOLDER "/vexutils"}) {
        headers += entry.path().extension() == ".h" ? file_content(entry.path()) : "";
    }
    for (const std::string file :  // the copies of records are made to fail there
         {"faults/base_scenarios", "faults/cache_scenarios", "faults/region_scenarios",
          "unit/rt_dup_test"}) {
        sources += file_content(SOURCE_FOLDER "/tests/" + file + ".cpp");
    }
    const std::set<std::string> used = words_of(sources, "\\b([A-Za-z_]\\w*)\\b");
    const std::set<std::string> functions = words_of(headers, "(\\w+)\\(");
    for (const std::string& name :
         words_of(file_content(SOURCE_FOLDER "/vexutils/libvexutils.map"), "\n    (\\w+);")) {
        EXPECT_TRUE(!functions.contains(name) || used.contains(name)) << name;
    }
    EXPECT_GT(functions.size(), 150u);
}

}  // namespace
}  // namespace faults
