#include <fcntl.h>
#include <platform/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <optional>
#include <string_view>

#include "internal/log.h"
#include "internal/vexel_state.h"
#include "rt_cache.h"
#include "rt_shm.h"

using namespace vexutils;

namespace {

constexpr std::size_t kStatusFileBytes = 4096;  // chosen: ten times what 32 slots need

// A file of the simulation input. Anybody may write to its folder: links and what is not a plain
// file are taken as absent.
class SimulationFile {
  public:
    explicit SimulationFile(const char* path)
        : descriptor_(open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)) {
        struct stat status;
        if (descriptor_ >= 0 && (fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode))) {
            close(descriptor_);
            descriptor_ = -1;
        }
    }
    ~SimulationFile() {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }
    SimulationFile(const SimulationFile&) = delete;
    SimulationFile& operator=(const SimulationFile&) = delete;
    explicit operator bool() const { return descriptor_ >= 0; }

    // Reads size bytes, or as many as the file still has; returns how many. No signal interrupts
    // what reads a plain file.
    std::size_t read_into(void* room, std::size_t size) const {
        std::size_t used = 0;
        while (used < size) {
            const ssize_t count =
                read(descriptor_, static_cast<std::uint8_t*>(room) + used, size - used);
            if (count <= 0) {
                break;
            }
            used += static_cast<std::size_t>(count);
        }
        return used;
    }

  private:
    int descriptor_;
};

struct SlotStatus {
    std::uint8_t slot;
    std::uint16_t status;
};

void skip_blanks(std::string_view& text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t' || text.front() == '\r')) {
        text.remove_prefix(1);
    }
}

// The number at the front of text, which then starts behind it.
template <class T>
std::optional<T> take_number(std::string_view& text, int base) {
    T value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc{}) {
        return {};
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return value;
}

// "slot status": decimal, a blank, hexadecimal with or without 0x.
std::optional<SlotStatus> parse_line(std::string_view line) {
    const auto slot = take_number<std::uint8_t>(line, 10);
    const std::size_t before = line.size();
    skip_blanks(line);
    if (!slot || *slot >= SHM_PCIESSD_SLOTS || line.size() == before) {
        return {};
    }
    if (line.starts_with("0x") || line.starts_with("0X")) {
        line.remove_prefix(2);
    }
    const auto status = take_number<std::uint16_t>(line, 16);
    skip_blanks(line);
    if (!status || !line.empty()) {
        return {};
    }
    return SlotStatus{*slot, *status};
}

struct Outcome {
    std::uint32_t result = 0;
    int taken = 0, skipped = 0;  // lines, or images
};

// Takes the named slots' statuses over into block; empty lines count as nothing.
Outcome parse_status(std::string_view text,
                     std::array<PCIeSSDStatusEntry, SHM_PCIESSD_SLOTS>& block) {
    Outcome lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        skip_blanks(line);
        if (line.empty()) {
            continue;
        }
        if (const auto parsed = parse_line(line)) {
            block[parsed->slot].u16DriveStatus = parsed->status;
            ++lines.taken;
        } else {
            ++lines.skipped;
        }
    }
    return lines;
}

int read_status_region(void* bytes, std::size_t offset, std::size_t count) {
    return Zent_shm_memread(ZENT_SHM_PCIESSD_STATUS, bytes, static_cast<int>(offset),
                            static_cast<int>(count));
}

Outcome simulate_status(const SimulationFile& file) {
    std::array<PCIeSSDStatusEntry, SHM_PCIESSD_SLOTS> block;
    if (read_status_region(block.data(), offsetof(PCIeSSDStatusRegion, status), sizeof(block)) !=
        0) {
        return {3, 0, 0};
    }
    std::array<char, kStatusFileBytes> room;
    std::string_view text{room.data(), file.read_into(room.data(), room.size())};
    char behind;
    const bool is_cut = text.size() == room.size() && file.read_into(&behind, 1) != 0;
    if (is_cut) {
        text = text.substr(0, text.rfind('\n') + 1);  // the last line may be half a line
    }
    Outcome lines = parse_status(text, block);
    lines.skipped += is_cut ? 1 : 0;
    if (lines.taken != 0) {
        lines.result = updatePciessdiBCDDataToShm(block.data());
    }
    return lines;
}

// Image i is drive i's, at the place of global slot i.
Outcome simulate_frus(const SimulationFile& file) {
    std::array<PCIeSSDPosition, SHM_PCIESSD_SLOTS> positions;
    if (read_status_region(positions.data(), offsetof(PCIeSSDStatusRegion, positions),
                           sizeof(positions)) != 0) {
        return {3, 0, 0};
    }
    std::array<std::uint8_t, SHM_FRU_IMAGE_BYTES> image;
    for (std::uint8_t i = 0; i < SHM_FRU_DRIVES; ++i) {
        const std::size_t length = file.read_into(image.data(), image.size());
        if (length < image.size()) {
            return {0, i, length != 0 ? 1 : 0};
        }
        constexpr PCIeSSDPosition kNowhere{0xFF, 0xFF, {}};
        const PCIeSSDPosition& position = i < positions.size() ? positions[i] : kNowhere;
        const std::uint32_t result =
            RTSHM_StoreFRU(RTCACHE_TYPE_NVME, 0, i, position.u8BayId, position.u8SlotNumInBay,
                           image.data(), static_cast<std::uint32_t>(image.size()));
        if (result != 0) {
            return {result, i, 0};
        }
    }
    return {0, SHM_FRU_DRIVES, file.read_into(image.data(), image.size()) != 0 ? 1 : 0};
}

}  // namespace

uint32_t RTSHM_SimulatePCIeSSD(void) {
    LOG(Level::Trace, "--> %s", __func__);
    if (const SimulationFile file{flag_paths.ssd_status}) {
        const Outcome status = simulate_status(file);
        LOG(status.skipped == 0 ? Level::Trace : Level::Warning,
            "%s: slots set:%d lines skipped:%d", flag_paths.ssd_status, status.taken,
            status.skipped);
        if (status.result != 0) {
            LOG(Level::Error, "<-- error, %s not simulated", flag_paths.ssd_status);
            return status.result;
        }
    }
    if (const SimulationFile file{flag_paths.ssd_fru}) {
        const Outcome frus = simulate_frus(file);
        LOG(frus.skipped == 0 ? Level::Trace : Level::Warning,
            "%s: images stored:%d images skipped:%d", flag_paths.ssd_fru, frus.taken, frus.skipped);
        if (frus.result != 0) {
            LOG(Level::Error, "<-- error, %s not simulated", flag_paths.ssd_fru);
            return frus.result;
        }
    }
    LOG(Level::Trace, "<-- %s", __func__);
    return 0;
}
