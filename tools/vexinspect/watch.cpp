#include "vexinspect/watch.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

#include "vexinspect/layout_table.h"
#include "vexinspect/map.h"
#include "vexinspect/region_view.h"
#include "vexinspect/show.h"

namespace vexinspect {

namespace {

constexpr const char* kClearScreen = "\033[H\033[2J";

std::vector<uint32_t> generations() {
    std::vector<uint32_t> numbers;
    for (const Region& region : regions()) {
        numbers.push_back(region_generation(region.id));
    }
    return numbers;
}

std::string picture(const std::string& state) {
    std::string out;
    for (const char* topic : {"inventory", "controllers", "batteries", "tape"}) {
        out += show(topic);
    }
    return out + draw_map(read_daemon_state(state));
}

}  // namespace

void watch(const WatchOptions& options, const std::string& state) {
    const std::chrono::duration<double> interval(options.interval_seconds);
    const char* separator = isatty(STDOUT_FILENO) != 0 ? kClearScreen : "\n";
    std::vector<uint32_t> shown;
    for (int drawn = 0; options.updates == 0 || drawn < options.updates;) {
        const std::vector<uint32_t> now = generations();
        if (now != shown) {
            std::printf("%s%s", drawn == 0 && separator[0] == '\n' ? "" : separator,
                        picture(state).c_str());
            std::fflush(stdout);
            shown = now;
            ++drawn;
        } else {
            std::this_thread::sleep_for(interval);
        }
    }
}

}  // namespace vexinspect
