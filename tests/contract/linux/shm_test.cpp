#include "platform/shm.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <future>

#include "platform/linux/shm_admin.h"
#include "tests/support/linux_test.h"

namespace {

constexpr int kRegion = ZENT_SHM_PCIESSD_STATUS;
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

TEST_F(LinuxShm, TakesWhatItsMakerLeftHalfwayAndRefusesWhatIsNotItsOwn) {
    const std::string name = "/dev/shm" + object_name();
    const std::string other = name + "x";
    const auto make = [](const std::string& path, off_t size, const char* head) {
        write_file(path, head);
        EXPECT_EQ(truncate(path.c_str(), size), 0);
    };
    for (const auto& [what, read, written, lay] :
         Rows<const char*, int, bool, std::function<void()>>{
             {"just created", 0, true, [&] { make(name, 0, ""); }},
             {"without a control block", 0, true, [&] { make(name, kObjectSize, ""); }},
             {"another size", -1, false, [&] { make(name, 100, ""); }},
             {"other content", -1, false, [&] { make(name, kObjectSize, "something else"); }},
             {"a symbolic link", -1, false,
              [&] {
                  make(other, 0, "");
                  EXPECT_EQ(symlink(other.c_str(), name.c_str()), 0);
              }},
             {"another name of a file", 0, false,
              [&] {
                  make(name, 0, "");
                  EXPECT_EQ(link(name.c_str(), other.c_str()), 0);
              }},
             // Without the right to give it away it is read-only: that refuses, too.
             {"another user's object", 0, false, [&] {
                  make(name, 0, "");
                  EXPECT_EQ(geteuid() == 0 ? chown(name.c_str(), kNobody, kNobody)
                                           : chmod(name.c_str(), 0444),
                            0);
              }}}) {
        lay();
        EXPECT_EQ(read_byte(5), read);
        EXPECT_EQ(write_byte(7, 5) == 0, written);
        EXPECT_EQ(read_byte(5), written ? 7 : read);
        unlink(name.c_str());
        unlink(other.c_str());
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
                auto second =
                    std::async(std::launch::async, [&] { return write_often(kProcesses + child); });
                return write_often(child) && second.get();
            }));
        }
        for (const pid_t child : children) {
            EXPECT_TRUE(succeeded(child));
        }
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
    const int fd = shm_open(object_name().c_str(), O_RDWR, 0);
    const uint32_t last = UINT32_MAX;
    ASSERT_EQ(pwrite(fd, &last, sizeof last, 12), 4);
    close(fd);
    EXPECT_EQ(write_byte(2), 0);
    EXPECT_EQ(generation(), 2u);
    EXPECT_EQ(read_byte(), 2);
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
