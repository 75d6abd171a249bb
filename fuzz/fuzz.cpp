#include "fuzz/fuzz.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "internal/vexel_state.h"
#include "rt_cache.h"
#include "rt_cache/rt_cache_nodes.h"
#include "rt_shm.h"
#include "rt_shm/nvme_table.h"

// An input makes many blocks and few that matter for long.
extern "C" const char* __asan_default_options();
const char* __asan_default_options() {
    return "quarantine_size_mb=4:malloc_context_size=4";
}

namespace fuzz {

namespace {

std::vector<const Target*>& list() {
    static std::vector<const Target*> all;
    return all;
}

// What the tests are worth: with this, inputs are read one byte behind their end.
const std::size_t planted = std::getenv("VEX_FUZZ_PLANT") != nullptr ? 1 : 0;

Header current;  // the current input's

// Where the current input's story is told; none: nobody listens.
std::string* told = nullptr;

void tell_line(const std::string& line) {
    *told += line + '\n';
}

std::string hex(const void* bytes, std::size_t count) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint8_t byte = static_cast<const std::uint8_t*>(bytes)[i];
        text += {' ', kDigits[byte / 16], kDigits[byte % 16]};
    }
    return text;
}

void tell_log_lines() {
    for (const fake::LogLine& line : fake::platform().lines()) {
        tell_line("  " + std::to_string(line.level) + " " + fake::lasting_part(line));
    }
    fake::platform().clear_lines();
}

// What reached the platform, and the tables of the drives.
void tell_platform(const fake::Platform& platform) {
    for (const fake::ShmWrite& write : platform.writes()) {
        tell_line("region " + std::to_string(write.region) + " at " + std::to_string(write.offset) +
                  hex(write.bytes.data(), write.bytes.size()));
    }
    for (const fake::BpWrite& write : platform.bp_writes) {
        tell("service", &write.record, sizeof(write.record));
    }
    for (const auto& sent : platform.submissions) {
        tell_line("event " + sent.numbers + ' ' + sent.message_id + ' ' + sent.fqdd + ' ' +
                  sent.arguments);
    }
    for (const auto* requests : {&platform.singles, &platform.ipmi_requests}) {
        for (const std::vector<std::uint8_t>& request : *requests) {
            tell("request", request.data(), request.size());
        }
    }
    tell("drives", &sNVMeSSDBPInfo, sizeof(sNVMeSSDBPInfo));
    tell("their endpoints", &sNVMeSSDBPVDMInfo, sizeof(sNVMeSSDBPVDMInfo));
    tell("tape drive", static_cast<std::uint64_t>(g_IsTapeDrivePresent));
}

// What the current input filled.
struct Range {
    std::uint8_t* bytes;
    std::size_t count;
};
std::vector<Range> filled;

// From the second read on, each finds another value at the header's position than the one before.
void change_between_reads(const Header& header) {
    fake::platform().before_read = [header, reads = 0u]() mutable {
        std::size_t at = header.position;
        auto range = filled.begin();
        for (; range != filled.end() && at >= range->count; ++range) {
            at -= range->count;
        }
        if (range != filled.end() && reads++ != 0) {
            range->bytes[at] = static_cast<std::uint8_t>(range->bytes[at] ^ header.changed);
        }
    };
}

// As Platform::reset, which would take longer than most inputs: only what was written is cleared.
void reset(fake::Platform& platform) {
    for (const fake::ShmWrite& write : platform.shm_writes) {
        std::memset(&platform.region(write.region)[static_cast<std::size_t>(write.offset)], 0,
                    write.bytes.size());
    }
    for (const Range& range : filled) {
        std::memset(range.bytes, 0, range.count);
    }
    filled.clear();
    if (platform.regions.empty()) {
        platform.reset();
    }
    static_cast<fake::State&>(platform) = {};
}

// A cache without backplanes and extenders: what most targets need, and slow to make.
void empty_cache() {
    max_pciessd_backplanes = 5;
    if (mutexRtCache == nullptr) {
        max_adapters = 3;  // quick to make
        max_physicaldevices = 64;
        max_logicaldevices = 16;
        EXPECT_EQ(rtcache_Init(), 0u);
    }
    for (ExtenderCardInfo*& extender : cache_Extndrs) {
        if (extender != nullptr) {
            vexutils::free_extender(extender);
        }
    }
    for (BpStatusInfo*& backplane : cache_Bkplanes) {
        if (backplane != nullptr) {
            vexutils::free_backplane(backplane);
        }
    }
}

fake::State::Lines treatment_of_lines(const Header& header) {
    using Lines = fake::State::Lines;
    const Lines unheard = header.lines == kFormatLines ? Lines::Formatted : Lines::Dropped;
    return told != nullptr ? Lines::Recorded : unheard;
}

void start(const Header& header) {
    fake::Platform& platform = fake::platform();
    reset(platform);
    platform.treatment = treatment_of_lines(header);
    if (header.changed != 0) {
        change_between_reads(header);
    }
    std::memset(&sNVMeSSDBPInfo, 0, sizeof(sNVMeSSDBPInfo));
    std::memset(&sNVMeSSDBPVDMInfo, 0, sizeof(sNVMeSSDBPVDMInfo));
    std::memset(vexutils::latest_drive_states, 0, sizeof(vexutils::latest_drive_states));
    std::memset(vexutils::acted_drive_states, 0, sizeof(vexutils::acted_drive_states));
    g_IsTapeDrivePresent = TAPE_UNKNOWN;
    vexutils::log_state.file = vexutils::LogFile::Disabled;
    vexutils::flag_paths.cache_dump = "/dev/null";
    GTEST_FLAG_SET(throw_on_failure, true);
    empty_cache();
}

}  // namespace

Target::Target(const char* target, Structures run) : name(target), structures(run) {
    list().push_back(this);
}
Target::Target(const char* target, Format run) : name(target), format(run) {
    list().push_back(this);
}

const std::vector<const Target*>& targets() {
    return list();
}

void Input::take(void* room, std::size_t count) {
    auto* bytes = static_cast<std::uint8_t*>(room);
    const std::size_t given = std::min(count, left() + planted);
    std::copy_n(data_ + at_, given, bytes);
    at_ += given;
    std::fill_n(bytes + given, count - given, std::uint8_t{0});
    for (std::size_t i = given; at_end_ == AtEnd::Again && size_ != 0 && i < count; ++i, ++past_) {
        bytes[i] = static_cast<std::uint8_t>(data_[past_ % size_] + 29 * (past_ / size_ + 1));
    }
}

void Input::fill(void* room, std::size_t count) {
    take(room, count);
    filled.push_back({static_cast<std::uint8_t*>(room), count});
}

Bytes Input::bytes(std::size_t count) {
    Bytes block(count);
    take(block.data(), count);
    return block;
}

std::uint32_t Input::number() {
    static constexpr std::uint32_t kLimits[] = {
        0,    1,      2,      3,      4,      5,          6,          7,         11,  15,  16,
        17,   20,     21,     31,     32,     35,         36,         49,        50,  60,  99,
        127,  128,    249,    250,    254,    255,        256,        511,       512, 513, 2047,
        2048, 0x7FFF, 0x8000, 0xFFFE, 0xFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    const std::uint32_t choice = below(64);
    return choice < std::size(kLimits) ? kLimits[choice] : raw<std::uint32_t>();
}

std::string Input::text() {
    // clang-format off
    static constexpr const char* kPieces[] = {
        "Disk", "Bay", "Enclosure", "Internal", "0-", "PCIeExtender", "Slot", "PCIeSSD", "SL", "RAID.", "NonRAID", "7",
        "Integrated", "TAVI-A2", ".", ":", "-", " ", "%s%n", "%%", "4294967296", "-7", "255", "1", "3", "PDR3", "ENC28",
        "CTL97", "\xFF\x80", "PCIeSSD.Slot.3-1", "Disk.Bay.7:Enclosure.Internal.0-2:PCIeExtender.Slot.3",
        "a long name that no device has, but that somebody might give to one 0123456789"};
    // clang-format on
    std::string text;
    for (std::uint32_t count = below(9); count > 0; --count) {
        text += kPieces[below(std::size(kPieces))];
    }
    return text;
}

Failures::Failures() {
    fake::platform().fail(fake::Place::Allocation, current.allocation);
    fake::platform().fail(fake::Place::AnyCall, current.call);
}

Failures::~Failures() {
    fake::platform().no_faults();
}

bool Failures::happened() const {
    return fake::platform().fault_fired(fake::Place::Allocation) ||
           fake::platform().fault_fired(fake::Place::AnyCall);
}

std::wstring widened(const std::string& narrow) {
    std::wstring wide;
    for (const char character : narrow) {
        wide += static_cast<wchar_t>(static_cast<unsigned char>(character));
    }
    return wide;
}

std::wstring Input::wide_text() {
    std::wstring wide = widened(text());
    if (const std::uint32_t odd = below(256); odd > 0xF0 && !wide.empty()) {
        wide[odd % wide.size()] = static_cast<wchar_t>(raw<std::uint32_t>() | 1);
    }
    return wide.c_str();
}

void Input::tell_kept() {
    for (; told != nullptr && told_ < kept_.size(); ++told_) {
        tell("  kept", kept_[told_].data(), kept_[told_].size());
    }
}

bool listens() {
    return told != nullptr;
}

void tell(const char* what, std::uint64_t value) {
    if (told != nullptr) {
        tell_log_lines();
        tell_line(what + (" " + std::to_string(value)));
    }
}

void tell(const char* what, const void* bytes, std::size_t count) {
    if (told != nullptr) {
        tell_log_lines();
        tell_line(what + hex(bytes, count));
    }
}

void run(const Target& target, const std::uint8_t* data, std::size_t size, std::string* story) {
    told = story;
    Header& header = current = {};
    const std::size_t given = std::min(size, sizeof(header));
    std::copy_n(data, given, reinterpret_cast<std::uint8_t*>(&header));
    data += given;
    size -= given;
    start(header);
    const fake::Platform& platform = fake::platform();
    const long blocks = fake::live_blocks();
    const int mutexes = platform.live_mutexes;
    const unsigned shift = header.shift % 4;
    if (target.structures != nullptr) {
        Input input{data, size, shift, Input::AtEnd::Zeros};
        target.structures(input);
    } else {
        const std::size_t before = std::min(size, kArgumentBytes);
        Input arguments{data, before, shift, Input::AtEnd::Again};
        Input format{data + before, size - before, shift, Input::AtEnd::Zeros};
        target.format(arguments, format);
    }
    if (told != nullptr) {
        tell_platform(platform);
    }
    empty_cache();
    EXPECT_EQ(platform.locks_held, 0);
    EXPECT_EQ(platform.live_mutexes, mutexes);
    EXPECT_EQ(platform.live_lists, 0);
    EXPECT_EQ(platform.open_sessions(), 0);
    EXPECT_EQ(fake::live_blocks(), blocks);
}

}  // namespace fuzz
