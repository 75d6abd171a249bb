#include "platform/shm.h"

#include <fcntl.h>
#include <sys/mman.h>

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
    const std::string name = object_name();
    const std::string other = name + "x";
    const auto make = [&](off_t size, const char* head) {
        const int fd = shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0644);
        EXPECT_EQ(ftruncate(fd, size), 0);
        EXPECT_EQ(pwrite(fd, head, strlen(head), 0), static_cast<ssize_t>(strlen(head)));
        close(fd);
    };
    const std::string folder = "/dev/shm";
    for (const auto& [what, readable, root_only, lay] :
         Rows<const char*, bool, bool, std::function<void()>>{
             {"another size", false, false, [&] { make(100, ""); }},
             {"other content", false, false, [&] { make(kObjectSize, "something else"); }},
             {"a symbolic link", false, false,
              [&] {
                  make(0, "");
                  ASSERT_EQ(rename((folder + name).c_str(), (folder + other).c_str()), 0);
                  ASSERT_EQ(symlink((folder + other).c_str(), (folder + name).c_str()), 0);
              }},
             {"another name of a file", true, false,
              [&] {
                  make(0, "");
                  ASSERT_EQ(link((folder + name).c_str(), (folder + other).c_str()), 0);
              }},
             {"another user's object", true, true, [&] {
                  make(0, "");
                  ASSERT_EQ(chown((folder + name).c_str(), kNobody, kNobody), 0);
              }}}) {
        if (root_only && geteuid() != 0) {
            continue;
        }
        lay();
        EXPECT_EQ(read_byte(), readable ? 0 : -1);
        EXPECT_NE(write_byte(7), 0);
        EXPECT_EQ(read_byte(), readable ? 0 : -1);
        shm_unlink(name.c_str());
        shm_unlink(other.c_str());
    }
}

TEST_F(LinuxShm, RefusesNamespacesThatAreNoPlainName) {
    const std::string own = getenv("VEX_SHM_NAMESPACE");
    for (const std::string& name : {std::string{"a/b"}, std::string{".."}, std::string(65, 'a')}) {
        SCOPED_TRACE(name);
        setenv("VEX_SHM_NAMESPACE", name.c_str(), 1);
        EXPECT_EQ(read_byte(), -1);
        EXPECT_NE(write_byte(7), 0);
        EXPECT_NE(vexplatform_shm_remove_all(), 0);
        uint32_t number = 0;
        EXPECT_NE(vexplatform_shm_generation(kRegion, &number), 0);
    }
    setenv("VEX_SHM_NAMESPACE", own.c_str(), 1);
}

TEST_F(LinuxShm, CompletesWhatItsMakerLeftHalfway) {
    for (const off_t size : {off_t{0}, kObjectSize}) {
        SCOPED_TRACE(size);
        const int fd = shm_open(object_name().c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
        ASSERT_EQ(ftruncate(fd, size), 0);
        EXPECT_EQ(read_byte(5), 0);
        EXPECT_EQ(write_byte(7, 5), 0);
        EXPECT_EQ(read_byte(5), 7);
        EXPECT_EQ(generation(), 1u);
        close(fd);
        reset_shared_memory();
    }
}

constexpr int kWrites = 250;

// Each writer has a byte of its own, so a writer that took no notice of another shows there.
int write_often(int offset) {
    int failures = 0;
    for (uint8_t write = 1; write <= kWrites; ++write) {
        failures += write_byte(write, offset);
    }
    return failures;
}

TEST_F(LinuxShm, NoWriteIsLostWhenManyProcessesAndThreadsMakeAndWriteTheRegion) {
    constexpr int kProcesses = 3;
    for (int round = 0; round < 10; ++round) {
        std::array<int, 2> start{};
        ASSERT_EQ(pipe(start.data()), 0);
        std::vector<pid_t> children;
        for (int child = 0; child < kProcesses; ++child) {
            children.push_back(in_child([&] {
                close(start[1]);
                char end;
                int failures = read(start[0], &end, 1) == 0 ? 0 : 1;
                std::thread second{[&] { failures += write_often(kProcesses + child); }};
                const int own_failures = write_often(child);
                second.join();
                return failures + own_failures == 0;
            }));
        }
        close(start[1]);
        for (const pid_t child : children) {
            EXPECT_TRUE(succeeded(child));
        }
        close(start[0]);
        EXPECT_EQ(generation(), 2u * kProcesses * kWrites);
        for (int writer = 0; writer < 2 * kProcesses; ++writer) {
            EXPECT_EQ(read_byte(writer), kWrites);
        }
        reset_shared_memory();
    }
}

TEST_F(LinuxShm, ProcessesThatGoOnNoticeThatARegionWasRemovedAndMadeAgain) {
    EXPECT_EQ(write_byte(7), 0);
    EXPECT_EQ(read_byte(), 7);
    ASSERT_TRUE(succeeded(in_child([] { return vexplatform_shm_remove_all() == 0; })));
    EXPECT_EQ(read_byte(), 0);
    EXPECT_EQ(generation(), 0u);
    ASSERT_TRUE(succeeded(in_child([] { return write_byte(8) == 0; })));
    EXPECT_EQ(read_byte(), 8);
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
    EXPECT_NE(vexplatform_shm_generation(4, nullptr), 0);
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
    const auto time = Clock::now() - start;
    EXPECT_GE(time, milliseconds{15});
    EXPECT_LT(time, seconds{5});
    close(fd);
    EXPECT_EQ(read_byte(), 2);
}

TEST_F(LinuxShm, AForkedChildReadsAndWritesWhateverItsParentWasDoing) {
    std::atomic<bool> stop{false};
    std::jthread writer{[&] {
        for (uint8_t value = 0; !stop; ++value) {
            EXPECT_EQ(write_byte(value), 0);
            EXPECT_EQ(read_byte(), value);
        }
    }};
    for (int round = 1; round <= 30; ++round) {
        const auto mark = static_cast<uint8_t>(round);
        EXPECT_TRUE(succeeded(
            in_child([&] { return write_byte(mark, 10) == 0 && read_byte(10) == mark; })));
        EXPECT_EQ(read_byte(10), mark);
    }
    stop = true;
}

// A child shares its parent's open files; the lock of a parent killed in a write must not live on
// in it.
TEST_F(LinuxShm, AKilledWritersLockDoesNotLiveOnInItsChildren) {
    for (int round = 0; round < 20; ++round) {
        std::array<int, 2> over{};
        ASSERT_EQ(pipe(over.data()), 0);
        const pid_t writer = in_child([&] {
            close(over[1]);
            write_byte(1);
            in_child([&] {
                char end;
                return read(over[0], &end, 1) == 0;
            });
            while (write_byte(2) == 0) {
            }
            return false;
        });
        usleep(static_cast<useconds_t>(3000 + round * 50));
        kill(writer, SIGKILL);
        int status = 0;
        waitpid(writer, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status));
        EXPECT_TRUE(succeeded(in_child([] { return write_byte(3) == 0; })));
        close(over[0]);
        close(over[1]);
    }
}

}  // namespace
