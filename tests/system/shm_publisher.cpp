// shm_publisher SEED LIFE [one-copy]: publishes the sections for ever in a child that it kills
// after a random time, at most LIFE microseconds, and starts again, until its standard input ends;
// then prints the number of kills. With "one-copy" it publishes as a service would that has no
// second copy, which the readers must notice.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "platform/linux/shm_layout.h"
#include "platform/shm.h"
#include "tests/system/shm_section.h"

namespace {

bool publish(const Section& section, const SectionBytes& bytes) {
    return Zent_shm_memwrite(kSectionRegion, bytes.data(), section.offset, section.size) == 0;
}

// The defect: the readers' copy is changed in place.
bool publish_in_place(const Section& section, const SectionBytes& bytes) {
    using namespace vexplatform;
    static uint8_t* const base = [] {
        const std::string name = std::string{"/"} + getenv("VEX_SHM_NAMESPACE") + ".3";
        const int fd = shm_open(name.c_str(), O_RDWR, 0);
        return static_cast<uint8_t*>(mmap(nullptr, shm_object_size(ZENT_SHM_STORAGE_INVENTORY_SIZE),
                                          PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    }();
    uint32_t generation;
    memcpy(&generation, base + offsetof(ShmControl, generation), sizeof generation);
    memcpy(base + shm_copy_offset(ZENT_SHM_STORAGE_INVENTORY_SIZE, generation) + section.offset,
           bytes.data(), static_cast<size_t>(section.size));
    return true;
}

using Publish = bool (*)(const Section& section, const SectionBytes& bytes);

// Goes on counting where the last life ended.
bool publish_next(Publish how) {
    static SectionBytes bytes;
    for (const Section& section : kSections) {
        uint32_t number = 0;
        if (Zent_shm_memread(kSectionRegion, &number, section.offset, sizeof number) != 0) {
            return false;
        }
        fill_section(bytes, number + 1);
        if (!how(section, bytes)) {
            return false;
        }
    }
    return true;
}

bool input_ended() {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    return poll(&input, 1, 0) != 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        return 2;
    }
    std::mt19937 random{static_cast<uint32_t>(strtoul(argv[1], nullptr, 10))};
    const unsigned long longest_life = strtoul(argv[2], nullptr, 10);
    const Publish how = argc > 3 ? publish_in_place : publish;
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
            fprintf(stderr, "shm_publisher: a write failed\n");
            return 1;
        }
    }
    printf("%d\n", kills);
    return 0;
}
