// A publisher that is killed at random moments, readers beside it in other processes, of either
// word size.

#include "platform/linux/shm_admin.h"
#include "platform/shm.h"
#include "tests/support/linux_test.h"

namespace {

// Microseconds; long enough for an emulated publisher to get some writes done.
constexpr const char* kLongestLife = EMULATED ? " 25000" : " 2000";

struct Outcome {
    int kills = 0;
    // Totals of the readers: reads; of those failed, torn, older and newer than the one before.
    std::array<int, 5> reads{};

    void add(FILE* reader) {
        for (int& total : reads) {
            int number = 0;
            EXPECT_EQ(fscanf(reader, "%d", &number), 1) << "no result";
            total += number;
        }
        EXPECT_EQ(pclose(reader), 0);
    }
};

class ShmKill : public testing::Test {
  protected:
    void SetUp() override {
        setenv("VEX_SHM_NAMESPACE", ("vexkill-" + std::to_string(getpid())).c_str(), 1);
        ASSERT_EQ(vexplatform_shm_remove_all(), 0);
    }
    void TearDown() override { EXPECT_EQ(vexplatform_shm_remove_all(), 0); }

    // The publisher publishes until its input ends, and leaves the number of its kills in a file.
    Outcome run(const std::string& publisher, const std::string& mode, const Lines& readers,
                int reads) const {
        const char* fixed = getenv("VEX_TEST_SEED");
        const std::string seed = fixed != nullptr ? fixed : std::to_string(std::random_device{}());
        FILE* publishing = popen(
            (publisher + " publish " + seed + kLongestLife + mode + " >" + dir / "kills").c_str(),
            "we");
        std::vector<FILE*> reading;
        for (const std::string& reader : readers) {
            reading.push_back(popen((reader + " read " + std::to_string(reads)).c_str(), "re"));
        }
        Outcome all;
        for (FILE* reader : reading) {
            all.add(reader);
        }
        EXPECT_EQ(pclose(publishing), 0) << "the publisher failed";
        all.kills = atoi(file_content(dir / "kills").c_str());
        printf("figures: R7 kills=%d reads=%d torn=%d publisher=%s new=%d seed=%s\n", all.kills,
               all.reads[0], all.reads[2], mode.empty() ? "whole" : mode.c_str() + 1, all.reads[4],
               seed.c_str());
        return all;
    }

    static void expect_whole(Outcome outcome) {
        EXPECT_GT(outcome.kills, 0);
        // The last publisher was killed, too: what it left is whole and can be written.
        outcome.add(popen(SHM_PROGRAM " read 2", "re"));
        EXPECT_EQ(outcome.reads[1], 0) << "failed";
        EXPECT_EQ(outcome.reads[2], 0) << "torn";
        EXPECT_EQ(outcome.reads[3], 0) << "older";
        alarm(20);
        EXPECT_EQ(Zent_shm_memwrite(ZENT_SHM_STORAGE_INVENTORY, "", 0, 0), 0);
        alarm(0);
    }

    TempDir dir;
};

TEST_F(ShmKill, NoReaderSeesHalfAWrite) {
    constexpr int kKills = EMULATED || sizeof(void*) == 8 ? 1'000 : 5'000;
    for (int kills = 0; kills < kKills && !HasFailure();) {
        const Outcome outcome = run(SHM_PROGRAM, "", {SHM_PROGRAM, SHM_PROGRAM}, 50'000);
        expect_whole(outcome);
        kills += outcome.kills;
    }
}

TEST_F(ShmKill, ProcessesOfBothWordSizesShareARegion) {
#ifdef SHM_PROGRAM_64
    expect_whole(run(SHM_PROGRAM, "", {SHM_PROGRAM_64}, 20'000));
    TearDown();
    expect_whole(run(SHM_PROGRAM_64, "", {SHM_PROGRAM, SHM_PROGRAM_64}, 50'000));
#else
    GTEST_SKIP() << "needs a 32-bit build on a machine with a 64-bit compiler";
#endif
}

// What this test is worth: the same readers, a publisher without a second copy.
TEST_F(ShmKill, TheReadersNoticeAPublisherWithoutASecondCopy) {
    EXPECT_GT(run(SHM_PROGRAM, " one-copy", {SHM_PROGRAM, SHM_PROGRAM}, 2'000).reads[2], 0);
}

}  // namespace
