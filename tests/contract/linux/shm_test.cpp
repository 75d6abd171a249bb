#include "platform/shm.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <future>

#include "platform/linux/shm_admin.h"
#include "tests/contract/contract.h"
#include "tests/support/linux_test.h"

namespace {

constexpr int kRegion = ZENT_SHM_PCIESSD_STATUS;
constexpr int kSize = ZENT_SHM_PCIESSD_STATUS_SIZE;
constexpr off_t kObjectSize = 64 + 2 * 384;  // control block and two copies, in units of 64 bytes
constexpr uid_t kNobody = 65534;

std::string object_name() {
    return "/" + std::string{getenv("VEX_SHM_NAMESPACE")} + "." + std::to_string(kRegion);
}

int write_byte(uint8_t value, int offset = 0) {
    return Zent_shm_memwrite(kRegion, &value, offset, 1);
}

// The byte at an offset, or -1 if it cannot be read.
int read_byte(int offset = 0) {
    uint8_t value = 0;
    return Zent_shm_memread(kRegion, &value, offset, 1) == 0 ? value : -1;
}

uint32_t generation() {
    uint32_t number = 0xEEEEEEEE;
    EXPECT_EQ(vexplatform_shm_generation(kRegion, &number), 0);
    return number;
}

class LinuxShm : public testing::Test {
  protected:
    void SetUp() override { reset_shared_memory(); }
    void TearDown() override { reset_shared_memory(); }
};

TEST_F(LinuxShm, EverybodyReadsAndTheMakerAloneWrites) {
    const mode_t mask = umask(077);
    EXPECT_EQ(write_byte(7), 0);
    umask(mask);
    struct stat status {};
    const int fd = shm_open(object_name().c_str(), O_RDONLY, 0);
    ASSERT_EQ(fstat(fd, &status), 0);
    close(fd);
    EXPECT_EQ(status.st_mode & ALLPERMS, 0644u);
    EXPECT_EQ(status.st_size, kObjectSize);

    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become somebody else";
    }
    EXPECT_TRUE(succeeded(in_child([] {
        return setuid(kNobody) == 0 && read_byte() == 7 && write_byte(8) != 0 && read_byte() == 7;
    })));
    EXPECT_EQ(read_byte(), 7);
}

TEST_F(LinuxShm, RefusesObjectsThatAreNotItsOwn) {
    const std::string name = "/dev/shm" + object_name();
    const std::string other = name + "x";
    for (const auto& [what, readable, lay] : Rows<const char*, bool, std::function<void()>>{
             {"another size", false, [&] { write_file(name, "x"); }},
             {"other content", false, [&] { write_file(name, std::string(kObjectSize, 'x')); }},
             {"a symbolic link", false,
              [&] {
                  write_file(other, "");
                  ASSERT_EQ(symlink(other.c_str(), name.c_str()), 0);
              }},
             {"another name of a file", true,
              [&] {
                  write_file(name, "");
                  ASSERT_EQ(link(name.c_str(), other.c_str()), 0);
              }},
             {"another user's object", true, [&] {
                  write_file(name, "");
                  // Without the right to give it away it is read-only: that refuses, too.
                  ASSERT_EQ(geteuid() == 0 ? chown(name.c_str(), kNobody, kNobody)
                                           : chmod(name.c_str(), 0444),
                            0);
              }}}) {
        lay();
        EXPECT_NE(write_byte(7), 0);
        EXPECT_EQ(read_byte(), readable ? 0 : -1);
        unlink(name.c_str());
        unlink(other.c_str());
    }
}

TEST_F(LinuxShm, CompletesWhatItsMakerLeftHalfway) {
    for (const off_t size : {off_t{0}, kObjectSize}) {
        const int fd = shm_open(object_name().c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
        ASSERT_EQ(ftruncate(fd, size), 0);
        close(fd);
        EXPECT_EQ(read_byte(5), 0);
        EXPECT_EQ(write_byte(7, 5), 0);
        EXPECT_EQ(read_byte(5), 7);
        reset_shared_memory();
    }
}

// Each writer has a byte of its own, so a writer that took no notice of another shows there.
bool write_often(int offset) {
    int failures = 0;
    for (uint8_t write = 1; write <= 250; ++write) {
        failures += write_byte(write, offset);
    }
    return failures == 0;
}

TEST_F(LinuxShm, NoWriteIsLostWhenManyProcessesAndThreadsMakeAndWriteTheRegion) {
    constexpr int kProcesses = 3;
    for (int round = 0; round < 10; ++round) {
        std::vector<pid_t> children;
        for (int child = 0; child < kProcesses; ++child) {
            children.push_back(in_child([&] {
                auto second = std::async(std::launch::async, write_often, kProcesses + child);
                return write_often(child) && second.get();
            }));
        }
        EXPECT_TRUE(std::ranges::all_of(children, succeeded));
        EXPECT_EQ(generation(), 2u * kProcesses * 250);
        for (int writer = 0; writer < 2 * kProcesses; ++writer) {
            EXPECT_EQ(read_byte(writer), 250);
        }
        reset_shared_memory();
    }
}

TEST_F(LinuxShm, ProcessesThatGoOnNoticeThatARegionWasRemovedAndMadeAgain) {
    EXPECT_EQ(write_byte(7), 0);
    EXPECT_EQ(read_byte(), 7);
    ASSERT_TRUE(succeeded(in_child([] { return vexplatform_shm_remove_all() == 0; })));
    EXPECT_EQ(read_byte(), 0);
    ASSERT_TRUE(succeeded(in_child([] { return write_byte(8) == 0; })));
    EXPECT_EQ(write_byte(9, 1), 0) << "into the new object";
    EXPECT_TRUE(succeeded(in_child([] { return read_byte() == 8 && read_byte(1) == 9; })));
}

TEST_F(LinuxShm, TheGenerationTellsEveryWriteAndNeverReturnsToNone) {
    EXPECT_EQ(generation(), 0u);
    EXPECT_EQ(write_byte(1), 0);
    EXPECT_EQ(generation(), 1u);
    const int fd = shm_open(object_name().c_str(), O_RDWR, 0);
    const uint32_t last = UINT32_MAX;
    ASSERT_EQ(pwrite(fd, &last, sizeof last, 12), 4);
    close(fd);
    EXPECT_EQ(write_byte(2), 0);
    EXPECT_EQ(generation(), 2u);
    EXPECT_EQ(read_byte(), 2);
}

TEST_F(LinuxShm, AViewStaysAsItIsUntilItsThreadAsksAgain) {
    EXPECT_EQ(write_byte(7), 0);
    const auto* view = static_cast<const uint8_t*>(Zent_shm_get_shm(kRegion));
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(write_byte(8), 0);
    std::thread{[] { EXPECT_EQ(*static_cast<uint8_t*>(Zent_shm_get_shm(kRegion)), 8); }}.join();
    EXPECT_EQ(view[0], 7);
    EXPECT_EQ(view[kSize - 1], 0);
    EXPECT_EQ(*static_cast<uint8_t*>(Zent_shm_get_shm(kRegion)), 8);
}

// A reader asks for a pause with a lock that needs no write permission; one that never ends it must
// not hold writers up.
TEST_F(LinuxShm, AWriterPausesForASlowReaderButNotForEver) {
    EXPECT_EQ(write_byte(1), 0);
    const int fd = shm_open(object_name().c_str(), O_RDONLY, 0);
    struct flock pause {};
    pause.l_type = F_RDLCK;
    pause.l_start = 1;
    pause.l_len = 1;
    ASSERT_EQ(fcntl(fd, F_OFD_SETLK, &pause), 0);
    const auto start = Clock::now();
    EXPECT_EQ(write_byte(2), 0);
    EXPECT_GE(Clock::now() - start, milliseconds{15});
    close(fd);
}

// A child shares its parent's open files; the lock of a parent killed in a write must not live on
// in it.
TEST_F(LinuxShm, AKilledWritersLockDoesNotLiveOnInItsChildren) {
    for (int round = 0; round < 20; ++round) {
        std::array<int, 2> over{};
        ASSERT_EQ(pipe(over.data()), 0);
        const pid_t writer = in_child([&] {
            write_byte(1);
            in_child([&] {
                char end;
                close(over[1]);
                return read(over[0], &end, 1) == 0;
            });
            while (write_byte(2) == 0) {
            }
            return false;
        });
        usleep(static_cast<useconds_t>(3000 + round * 50));
        kill(writer, SIGKILL);
        EXPECT_FALSE(succeeded(writer));
        EXPECT_TRUE(succeeded(in_child([] { return write_byte(3) == 0; })));
        close(over[0]);
        close(over[1]);
    }
}

}  // namespace
