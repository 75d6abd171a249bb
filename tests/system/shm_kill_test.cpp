// A publisher that is killed at random moments, readers beside it in other processes, of either
// word size.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "platform/linux/shm_admin.h"
#include "platform/shm.h"
#include "tests/system/shm_section.h"

namespace {

// Microseconds; long enough for an emulated publisher to get some writes done.
constexpr const char* kLongestLife = EMULATED ? " 25000" : " 6000";

// A running program: its input ends when told so, its output is what it printed.
class Program {
  public:
    Program(const std::string& command, const std::string& argument) {
        std::array<int, 2> in{};
        std::array<int, 2> out{};
        EXPECT_EQ(pipe(in.data()), 0);
        EXPECT_EQ(pipe(out.data()), 0);
        pid_ = fork();
        if (pid_ == 0) {
            dup2(in[0], STDIN_FILENO);
            dup2(out[1], STDOUT_FILENO);
            for (const int fd : {in[0], in[1], out[0], out[1]}) {
                close(fd);
            }
            execl("/bin/sh", "sh", "-c", ("exec " + command + " " + argument).c_str(), nullptr);
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        input_ = in[1];
        output_ = out[0];
    }
    ~Program() {
        end_input();
        close(output_);
        waitpid(pid_, nullptr, 0);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    void end_input() {
        if (input_ >= 0) {
            close(input_);
            input_ = -1;
        }
    }

    std::istringstream output() {
        std::string text;
        std::array<char, 256> part{};
        for (ssize_t size; (size = read(output_, part.data(), part.size())) > 0;) {
            text.append(part.data(), static_cast<size_t>(size));
        }
        return std::istringstream{text};
    }

  private:
    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
};

struct Outcome {
    int kills = -1;
    int reads = 0;
    int failed = 0;
    int torn = 0;
    int older = 0;
    int newer = 0;
};

class ShmKill : public testing::Test {
  protected:
    void SetUp() override {
        signal(SIGPIPE, SIG_IGN);
        setenv("VEX_SHM_NAMESPACE", ("vexkill-" + std::to_string(getpid())).c_str(), 1);
        ASSERT_EQ(vexplatform_shm_remove_all(), 0);
    }
    void TearDown() override { EXPECT_EQ(vexplatform_shm_remove_all(), 0); }

    static Outcome run(const std::string& publisher, const std::string& mode,
                       const std::vector<std::string>& readers, int reads) {
        const char* fixed = getenv("VEX_TEST_SEED");
        const std::string seed = fixed != nullptr ? fixed : std::to_string(std::random_device{}());
        Outcome all;
        Program publishing{publisher, seed + kLongestLife + mode};
        std::list<Program> reading;
        for (const std::string& reader : readers) {
            reading.emplace_back(reader, std::to_string(reads));
        }
        for (Program& reader : reading) {
            Outcome one;
            auto counts = reader.output();
            EXPECT_TRUE(counts >> one.reads >> one.failed >> one.torn >> one.older >> one.newer)
                << "no result";
            all.reads += one.reads;
            all.failed += one.failed;
            all.torn += one.torn;
            all.older += one.older;
            all.newer += one.newer;
        }
        publishing.end_input();
        EXPECT_TRUE(publishing.output() >> all.kills) << "the publisher failed";
        printf("seed %s: %d kills, %d reads, %d of a new write, %d torn\n", seed.c_str(), all.kills,
               all.reads, all.newer, all.torn);
        return all;
    }

    static void expect_whole(const Outcome& outcome) {
        EXPECT_GT(outcome.kills, 0);
        EXPECT_EQ(outcome.failed, 0);
        EXPECT_EQ(outcome.torn, 0);
        EXPECT_EQ(outcome.older, 0);
        // The last publisher was killed, too: what it left is whole and can be written.
        SectionBytes bytes{};
        alarm(20);
        for (const Section& section : kSections) {
            ASSERT_EQ(Zent_shm_memread(kSectionRegion, bytes.data(), section.offset, section.size),
                      0);
            EXPECT_TRUE(section_whole(bytes, section.size));
            EXPECT_EQ(Zent_shm_memwrite(kSectionRegion, bytes.data(), section.offset, section.size),
                      0);
        }
        alarm(0);
    }
};

TEST_F(ShmKill, NoReaderSeesHalfAWrite) {
    constexpr int kKills = 200;
    for (int kills = 0; kills < kKills && !HasFailure();) {
        const Outcome outcome = run(SHM_PUBLISHER, "", {SHM_READER, SHM_READER}, 50'000);
        expect_whole(outcome);
        kills += outcome.kills;
    }
}

TEST_F(ShmKill, ProcessesOfBothWordSizesShareARegion) {
#ifdef SHM_READER_64
    expect_whole(run(SHM_PUBLISHER, "", {SHM_READER_64}, 20'000));
    TearDown();
    expect_whole(run(SHM_PUBLISHER_64, "", {SHM_READER, SHM_READER_64}, 20'000));
#else
    GTEST_SKIP() << "needs a 32-bit build on a machine with a 64-bit compiler";
#endif
}

// What this test is worth: the same readers, a publisher without a second copy.
TEST_F(ShmKill, TheReadersNoticeAPublisherWithoutASecondCopy) {
    EXPECT_GT(run(SHM_PUBLISHER, " one-copy", {SHM_READER, SHM_READER}, 2'000).torn, 0);
}

}  // namespace
