#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "internal/vexel_state.h"
#include "vexel.h"

namespace vexutils {

constinit FlagPaths flag_paths;

bool file_exists(const char* path) {
    struct stat status;
    return stat(path, &status) == 0;
}

namespace {

// What the stress polling of the boot-storage card does when its file gives no two numbers.
constexpr int kDefaultPollFirst = 0;
constexpr int kDefaultPollSecond = 3;

void sleep_whole(unsigned seconds) {
    std::timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += seconds;
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
    }
}

}  // namespace
}  // namespace vexutils

using namespace vexutils;

void vexel_sleep(unsigned seconds, unsigned repeats, int (*callback)(void)) {
    for (unsigned done = 0; done < repeats; ++done) {
        sleep_whole(seconds);
        if (callback != nullptr && callback() == 0) {
            return;
        }
    }
}

// Kept: 0 for "the file exists", against the name; the daemon relies on it.
unsigned IsvexelHBAInventoryDisabled(void) {
    return file_exists(flag_paths.hba_disabled) ? 0 : 1;
}

// Kept: as IsvexelHBAInventoryDisabled.
unsigned IsvexelTAVIInventoryDisabled(void) {
    return file_exists(flag_paths.tavi_disabled) ? 0 : 1;
}

unsigned IsstressTAVIPollEnabled(int* first, int* second) {
    std::FILE* file = std::fopen(flag_paths.tavi_poll, "re");
    if (file == nullptr) {
        return 0;
    }
    int numbers[2];
    // NOLINTNEXTLINE(cert-err34-c): numbers out of range are for who writes the file to avoid
    const bool both = std::fscanf(file, "%d %d", &numbers[0], &numbers[1]) == 2;
    static_cast<void>(std::fclose(file));

    *first = both ? numbers[0] : kDefaultPollFirst;
    *second = both ? numbers[1] : kDefaultPollSecond;
    return 1;
}

unsigned IsDumpEnabled(void) {
    // One call that tests and removes: of two threads that ask at once, one is told.
    return std::remove(flag_paths.dump_request) == 0 ? 1 : 0;
}
