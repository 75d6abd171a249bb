// The platform contract in memory, for unit tests: records what the library does, fails on request,
// refuses misuse.
//
// Misuse of locks (recursive, out of order, by another than the owner), a service called under any
// but the cache's, a write past a region and use of a closed session fail the running test. Faults
// are asked for by place: the n-th call from now at that place fails, once or from there on.
#ifndef TESTS_SUPPORT_FAKE_PLATFORM_H
#define TESTS_SUPPORT_FAKE_PLATFORM_H

#include <platform/bpapi.h>
#include <platform/sm.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace fake {

enum class Place {
    Lock,
    BpWrite,
    Call,        // any other call to the platform
    System,      // calls of the C library, where the binary wraps them
    Allocation,  // calloc and malloc of code linked into the test binary
    AnyCall,     // any of the above but Allocation, in an AllocationScope
    Count,
};

struct LogLine {
    int level = 0;
    int module = 0;
    std::string text;        // as the sink got it, with its newline
    std::string function;    // from the prefix; empty if there is none
    unsigned long line = 0;  // of the source, from the prefix; 0 if there is none
    std::string message;     // behind the prefix, without the newline
};

// A message without what differs from run to run or by unrelated changes: addresses, temporary
// folders, the number of its own source line (a statement has up to four) where such stand.
std::string lasting_part(const LogLine& line);

struct ShmWrite {
    int region;
    int offset;
    std::vector<uint8_t> bytes;
};

struct BpWrite {
    ZentBpApiHandle session;
    uint32_t type;
    BpDriveStateWrite record;
};

// What a reset takes back to its start: no lines, no faults, regions zero, service up.
struct State {
    struct Fault {
        int calls = 0;
        int at = 0;  // 0: none
        bool lasting = false;
        bool fired = false;

        bool strikes();  // counts a call
    };
    std::array<Fault, static_cast<size_t>(Place::Count)> faults;
    std::vector<LogLine> log;
    enum class Lines { Recorded, Formatted, Dropped };
    Lines treatment = Lines::Recorded;  // not to be changed while threads log
    std::function<void()> before_read;  // of a region or the snapshot
    std::function<void()> on_line;      // behind each; not to be changed while threads log
    std::vector<ShmWrite> shm_writes;
    std::map<ZentBpApiHandle, ZentBpApiCallback> sessions;

    // FRU table, backplane service.
    struct Fru {
        std::array<uint8_t, 15> info;
        std::vector<uint8_t> data;
    };
    std::map<uint16_t, Fru> frus;
    BpApiInfo snapshot = {};  // what a read gives
    uint32_t system_id = 0;
    std::vector<BpWrite> bp_writes;
    // Event IPC and IPMI.
    struct Submission {
        std::string numbers;  // "4 2 severity 0"
        std::string message_id;
        std::string fqdd;       // "-" if there is none
        std::string arguments;  // ";" behind each, "-" without a list
    };
    std::vector<Submission> submissions;
    std::vector<std::vector<uint8_t>> singles;        // requests
    std::vector<std::vector<uint8_t>> ipmi_requests;  // network function and command in front
    int ipmi_result = 0;
};

class Platform : public State {
  public:
    void reset();

    // The n-th call (1: the next) at a place fails; with lasting, all later ones too. Counts from
    // now.
    void fail(Place place, int n = 1, bool lasting = false) {
        fault(place) = {0, n, lasting, false};
    }
    void no_faults();
    // Calls at a place since reset or the last fail.
    int calls(Place place) const { return fault(place).calls; }
    // Whether a fault that was asked for has happened.
    bool fault_fired(Place place) const { return fault(place).fired; }

    // Log.
    const std::vector<LogLine>& lines() const { return log; }
    std::vector<std::string> messages(int level) const;
    int count_logged(int level, const std::string& message) const;
    bool logged(int level, const std::string& message) const {
        return count_logged(level, message) > 0;
    }
    void clear_lines() { log.clear(); }
    void treat_lines(Lines how) { treatment = how; }
    void record_lines(bool on) { treat_lines(on ? Lines::Recorded : Lines::Formatted); }

    // Shared memory: regions of the sizes in platform/shm.h, all readable and writable.
    std::map<int, std::vector<uint8_t>> regions;
    std::vector<uint8_t>& region(int id) { return regions.at(id); }
    const std::vector<ShmWrite>& writes() const { return shm_writes; }
    void clear_writes() { shm_writes.clear(); }

    int open_sessions() const { return static_cast<int>(sessions.size()); }
    void add_drive(uint8_t index, const BpApiDrive& drive);  // into snapshot; raises no count

    // What is held or alive of each kind.
    std::atomic<int> locks_held = 0, live_mutexes = 0, live_events = 0, live_lists = 0;

    // Used by the C functions.
    bool hit(Place place);  // counts a call; true: it is to fail
    void add_line(LogLine line);
    std::mutex mutex;  // over what the library's threads change; tests look when they have ended
    uintptr_t next_session = 1;

  private:
    Fault& fault(Place place) { return faults[static_cast<size_t>(place)]; }
    const Fault& fault(Place place) const { return faults[static_cast<size_t>(place)]; }
};

// The one platform of the process.
Platform& platform();

// Bytes that leave the library, all of which it must have written.
void leaves(const void* bytes, size_t count);

// Blocks of calloc and malloc, made by code linked into the test binary, that are not freed yet.
long live_blocks();
// Whether Allocation, System and AnyCall faults and counts apply on this thread now; on only around
// the code under test.
class AllocationScope {
  public:
    explicit AllocationScope(bool on = true);
    ~AllocationScope();
    AllocationScope(const AllocationScope&) = delete;

  private:
    const bool before_;
};
// Switches them off inside an AllocationScope.
struct AllocationPause : AllocationScope {
    AllocationPause() : AllocationScope(false) {}
};
// Counts a call of the C library; true: it is to fail.
bool system_call_fails();

}  // namespace fake

#endif  // TESTS_SUPPORT_FAKE_PLATFORM_H
