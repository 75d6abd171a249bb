// Either side of the kill test. Each of two sections of the storage inventory region is filled with
// the number of its write, so that bytes of two writes in one section show.
//
// "publish SEED LIFE [one-copy]" publishes for ever in a child that it kills after a random time,
// at most LIFE microseconds, and starts again, until its standard input ends; then prints the
// number of kills. With "one-copy" it publishes as a service would that has no second copy, which
// the readers must notice.
//
// "read READS" reads the sections in turn, at least so often and until one read in a hundred met a
// new write; prints the number of reads, and how many of them failed, were of more than one write,
// were older than the one before, and were newer than the one before.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "platform/linux/shm_layout.h"
#include "platform/shm.h"

namespace {

struct Section {
    int offset;
    int size;
};

constexpr int kRegion = ZENT_SHM_STORAGE_INVENTORY;
constexpr size_t kRegionSize = ZENT_SHM_STORAGE_INVENTORY_SIZE;
constexpr std::array<Section, 2> kSections{{{0, 724}, {724, 22954}}};

std::array<uint32_t, 22956 / sizeof(uint32_t)> words;

bool read_section(const Section& section) {
    return Zent_shm_memread(kRegion, words.data(), section.offset, section.size) == 0;
}

bool publish(const Section& section) {
    return Zent_shm_memwrite(kRegion, words.data(), section.offset, section.size) == 0;
}

// The defect: the readers' copy is changed in place.
bool publish_in_place(const Section& section) {
    using namespace vexplatform;
    static uint8_t* const base = [] {
        const std::string name = std::string{"/"} + getenv("VEX_SHM_NAMESPACE") + ".3";
        const int fd = shm_open(name.c_str(), O_RDWR, 0);
        return static_cast<uint8_t*>(
            mmap(nullptr, shm_object_size(kRegionSize), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    }();
    uint32_t generation;
    memcpy(&generation, base + offsetof(ShmControl, generation), sizeof generation);
    memcpy(base + shm_copy_offset(kRegionSize, generation) + section.offset, words.data(),
           static_cast<size_t>(section.size));
    return true;
}

using Publish = bool (*)(const Section& section);

// Goes on counting where the last life ended.
bool publish_next(Publish how) {
    for (const Section& section : kSections) {
        if (!read_section(section)) {
            return false;
        }
        words.fill(words[0] + 1);
        if (!how(section)) {
            return false;
        }
    }
    return true;
}

bool input_ended() {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    return poll(&input, 1, 0) != 0;
}

int publish_and_kill(unsigned long seed, unsigned long longest_life, Publish how) {
    std::mt19937 random{static_cast<uint32_t>(seed)};
    // Makes the region, and warms an emulator up, which else translates in each life until it ends.
    if (!publish_next(publish) || !publish_next(how)) {
        return 1;
    }
    int kills = 0;
    for (; !input_ended(); ++kills) {
        const pid_t parent = getpid();
        const pid_t child = fork();
        if (child == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            while (getppid() == parent && publish_next(how)) {
            }
            _exit(1);
        }
        usleep(static_cast<useconds_t>(random() % longest_life));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        if (!WIFSIGNALED(status)) {
            return 1;  // a write failed
        }
    }
    printf("%d\n", kills);
    return 0;
}

int read_often(int least) {
    alarm(200);  // a reader that starves fails
    std::array<uint32_t, kSections.size()> last{};
    int reads = 0, failed = 0, torn = 0, older = 0, newer = 0;
    for (; reads < least || newer < least / 100; ++reads) {
        const size_t turn = static_cast<size_t>(reads) % kSections.size();
        failed += !read_section(kSections[turn]);
        torn += memcmp(&words[0], &words[1],
                       static_cast<size_t>(kSections[turn].size) - sizeof words[0]) != 0;
        older += words[0] < last[turn];
        newer += words[0] > last[turn];
        last[turn] = words[0];
    }
    printf("%d %d %d %d %d\n", reads, failed, torn, older, newer);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3) {
        return read_often(atoi(argv[2]));
    }
    return argc < 4 ? 2
                    : publish_and_kill(strtoul(argv[2], nullptr, 10), strtoul(argv[3], nullptr, 10),
                                       argc > 4 ? publish_in_place : publish);
}
