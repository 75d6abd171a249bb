#include "tests/support/fake_platform.h"

#include <gtest/gtest.h>
#include <platform/debug_log.h>
#include <platform/shm.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <thread>
#include <utility>

#if __has_include(<valgrind/memcheck.h>)
#include <valgrind/memcheck.h>
#else
#define VALGRIND_CHECK_MEM_IS_DEFINED(bytes, count) 0
#define RUNNING_ON_VALGRIND 0
#endif

// The library's, where it is linked.
extern "C" [[gnu::weak]] SMMutexHandle mutexRtCache, rtsync_mutex;

namespace fake {

namespace {

// What leaves the library was written by it, padding too. Valgrind alone can tell.
class Leaving : public testing::Environment {
  public:
    static void check(const void* bytes, size_t count) {
        checked += count;
        if (VALGRIND_CHECK_MEM_IS_DEFINED(bytes, count) != 0) {
            ++undefined;
            ADD_FAILURE() << "bytes leave that nothing was written to";
        }
    }
    void TearDown() override {
        if (RUNNING_ON_VALGRIND != 0) {
            std::printf("figures: R9 bytes=%lu undefined=%lu\n", checked.load(), undefined.load());
        }
    }

  private:
    static inline std::atomic<unsigned long> checked{0}, undefined{0};
};
[[maybe_unused]] const auto* const kLeaving = testing::AddGlobalTestEnvironment(new Leaving);

thread_local bool in_scope = false;
thread_local std::vector<SMMutexHandle> held;  // by this thread, outermost first
thread_local SMMutexHandle refused = nullptr;  // where its last lock was made to fail

// Whether this thread holds nothing, or the cache's lock alone, under which services may be called.
bool holds_at_most_the_cache() {
    return held.empty() ||
           (held.size() == 1 && &mutexRtCache != nullptr && held[0] == mutexRtCache);
}

bool is_service(Place place) {
    return place == Place::BpWrite || place == Place::Call;
}

constexpr std::pair<int, size_t> kRegions[] = {
    {ZENT_SHM_STORAGE_INVENTORY, ZENT_SHM_STORAGE_INVENTORY_SIZE},
    {ZENT_SHM_EXTENDER_CARDS, ZENT_SHM_EXTENDER_CARDS_SIZE},
    {ZENT_SHM_PCIESSD_STATUS, ZENT_SHM_PCIESSD_STATUS_SIZE},
    {ZENT_SHM_PCIESSD_FRU, ZENT_SHM_PCIESSD_FRU_SIZE},
    {ZENT_SHM_FRU_TABLE, ZENT_SHM_FRU_TABLE_SIZE},
    {ZENT_SHM_THERMAL_SETTINGS, ZENT_SHM_THERMAL_SETTINGS_SIZE},
};

// "file.cpp:function:line:message\n" taken apart; a line without that prefix is all message.
LogLine parse(int level, int module, const std::string& text) {
    LogLine line{level, module, text, "", 0, text.substr(0, text.size() - text.ends_with('\n'))};
    const size_t file = text.find(".cpp:");
    const size_t function = file + 5;
    const size_t number = text.find(':', function);
    const size_t message = text.find(':', number + 1);
    if (file != std::string::npos && text.find(':') == function - 1 && message < text.size()) {
        line.function = text.substr(function, number - function);
        line.line = std::strtoul(&text[number + 1], nullptr, 10);
        line.message = line.message.substr(message + 1);
    }
    return line;
}

}  // namespace

void leaves(const void* bytes, size_t count) {
    Leaving::check(bytes, count);
}

std::string lasting_part(const LogLine& line) {
    static const std::regex varies{
        "(=> 0x|Info\\[)[0-9a-f]+|0x(?!0)[0-9a-f]{6,}|/\\S*/vex-test-\\w+"};
    constexpr unsigned long kStatementLines = 4;
    std::string text = line.message;
    // Which takes its time, and most have nothing of the kind.
    for (const char* sign : {"0x", "Info[", "vex-test-"}) {
        if (text.find(sign) != std::string::npos) {
            text = std::regex_replace(text, varies, "$1*");
            break;
        }
    }
    const auto is_digit = [](char character) { return character >= '0' && character <= '9'; };
    for (auto at = text.begin(); (at = std::find_if(at, text.end(), is_digit)) != text.end();) {
        const auto end = std::find_if_not(at, text.end(), is_digit);
        const unsigned long behind = std::strtoul(&*at, nullptr, 10) - line.line;
        const std::string_view before{text.begin(), at};
        const auto follows = [before](const char* what) { return before.ends_with(what); };
        const bool own = line.line != 0 && behind < kStatementLines &&
                         (end == text.end() ? follows(" ") || follows("LINE=") || follows("ine:")
                                            : follows("Func ") || follows("<-- ") || follows("! "));
        at = own ? text.erase(at, end) : end;
        at = own ? text.insert(at, '*') + 1 : at;
    }
    return text;
}

Platform& platform() {
    static Platform instance;
    return instance;
}

void Platform::reset() {
    const std::lock_guard lock{mutex};
    static_cast<State&>(*this) = State{};
    held.clear();
    for (const auto& [id, size] : kRegions) {
        regions[id].assign(size, 0);
    }
}

void Platform::no_faults() {
    for (Fault& fault : faults) {
        fault.at = 0;
        fault.lasting = false;
    }
}

bool State::Fault::strikes() {
    ++calls;
    const bool strikes = at != 0 && (calls == at || (lasting && calls > at));
    fired = fired || strikes;
    return strikes;
}

bool Platform::hit(Place place) {
    EXPECT_TRUE(!is_service(place) || holds_at_most_the_cache()) << "a service called under a lock";
    const std::lock_guard lock{mutex};
    const bool any = place != Place::Allocation && in_scope && fault(Place::AnyCall).strikes();
    return fault(place).strikes() || any;
}

void Platform::add_line(LogLine line) {
    const std::lock_guard lock{mutex};
    log.push_back(std::move(line));
}

std::vector<std::string> Platform::messages(int level) const {
    std::vector<std::string> result;
    for (const LogLine& line : log) {
        if (line.level == level) {
            result.push_back(line.message);
        }
    }
    return result;
}

int Platform::count_logged(int level, const std::string& message) const {
    return static_cast<int>(std::ranges::count(messages(level), message));
}

void Platform::add_drive(uint8_t index, const BpApiDrive& drive) {
    std::memcpy(&snapshot.drives[BPAPI_DRIVE_STRIDE * index], &drive, sizeof(drive));
}

}  // namespace fake

using fake::Place;
using fake::platform;
using std::chrono::milliseconds;

// ---- debug log --------------------------------------------------------------------------------

// Apart from zentprintf, since a sanitizer prepares the text's room with each call.
static void format_line(int level, int module, const char* format, va_list arguments) {
    char text[8192];
    text[0] = '\0';
    if (std::vsnprintf(text, sizeof(text), format, arguments) < 0) {
        ADD_FAILURE() << "a log line that no sink can convert: " << format;
    }
    if (platform().treatment == fake::State::Lines::Recorded) {
        platform().add_line(fake::parse(level, module, text));
    }
}

int zentprintf(int level, int module, const char* format, ...) {
    if (platform().treatment != fake::State::Lines::Dropped) {
        va_list arguments;
        va_start(arguments, format);
        format_line(level, module, format, arguments);
        va_end(arguments);
    }
    if (platform().on_line) {
        platform().on_line();
    }
    return 0;
}

// ---- mutexes and events -----------------------------------------------------------------------

struct SMMutexObject {
    std::mutex mutex;
    std::atomic<std::thread::id> owner;
    bool is_mine() const { return owner == std::this_thread::get_id(); }
};

SMMutexHandle SMMutexCreate(const char*) {
    if (platform().hit(Place::Call)) {
        return nullptr;
    }
    ++platform().live_mutexes;
    return new SMMutexObject;
}

int SMMutexLock(SMMutexHandle mutex, int timeoutMs) {
    if (mutex == nullptr) {
        return 1;
    }
    EXPECT_TRUE(fake::held.empty() || (fake::holds_at_most_the_cache() && mutex == rtsync_mutex))
        << "a lock under itself, or under another that is not allowed there";
    fake::refused = platform().hit(Place::Lock) ? mutex : nullptr;
    if (fake::refused != nullptr) {
        return 1;
    }
    EXPECT_EQ(timeoutMs, SM_WAIT_FOREVER) << "the library waits for its locks without limit";
    if (mutex->is_mine()) {
        return 1;
    }
    mutex->mutex.lock();
    mutex->owner = std::this_thread::get_id();
    fake::held.push_back(mutex);
    ++platform().locks_held;
    return 0;
}

int SMMutexUnLock(SMMutexHandle mutex) {
    if (mutex == nullptr || !mutex->is_mine()) {
        EXPECT_TRUE(mutex == nullptr ? !fake::in_scope : mutex == fake::refused)
            << "unlock of nothing, or by another than the owner";
        return 1;
    }
    std::erase(fake::held, mutex);
    mutex->owner = std::thread::id{};
    mutex->mutex.unlock();
    --platform().locks_held;
    return 0;
}

int SMMutexDestroy(SMMutexHandle mutex) {
    if (mutex == nullptr) {
        return 1;
    }
    EXPECT_EQ(mutex->owner.load(), std::thread::id{}) << "destruction of a held mutex";
    delete mutex;
    --platform().live_mutexes;
    return 0;
}

struct SMEventObject {
    const bool manual;
    std::mutex mutex = {};
    std::condition_variable changed = {};
    bool set = false;
};

SMEventHandle SMEventCreate(const char*, int manualReset) {
    if (platform().hit(Place::Call)) {
        return nullptr;
    }
    ++platform().live_events;
    return new SMEventObject{manualReset != 0};
}

static int set_event(SMEventHandle event, bool set) {
    if (event == nullptr) {
        return 1;
    }
    const std::lock_guard lock{event->mutex};
    event->set = set;
    event->changed.notify_all();
    return 0;
}

int SMEventSet(SMEventHandle event) {
    return set_event(event, true);
}

int SMEventReset(SMEventHandle event) {
    return set_event(event, false);
}

int SMEventWait(SMEventHandle event, int timeoutMs) {
    if (event == nullptr || platform().hit(Place::Call)) {
        return 1;
    }
    const milliseconds limit{timeoutMs < 0 ? INT_MAX : timeoutMs};
    std::unique_lock lock{event->mutex};
    if (!event->changed.wait_for(lock, limit, [event] { return event->set; })) {
        return 1;
    }
    event->set = event->manual;
    return 0;
}

int SMEventDestroy(SMEventHandle event) {
    if (event == nullptr) {
        return 1;
    }
    delete event;
    --platform().live_events;
    return 0;
}

// ---- shared memory ----------------------------------------------------------------------------

// The bytes of a range; null when there is no such range.
static uint8_t* range_of(int region, int offset, int count) {
    const auto found = platform().regions.find(region);
    if (found == platform().regions.end() || offset < 0 || count < 0) {
        return nullptr;
    }
    const size_t end = static_cast<size_t>(offset) + static_cast<size_t>(count);
    return end <= found->second.size() ? found->second.data() + offset : nullptr;
}

static void read_begins() {
    if (platform().before_read) {
        platform().before_read();
    }
}

int Zent_shm_memread(int region, void* dst, int offset, int count) {
    read_begins();
    if (dst == nullptr || platform().hit(Place::Call)) {
        return 5;
    }
    const std::lock_guard lock{platform().mutex};
    const uint8_t* bytes = range_of(region, offset, count);
    if (bytes == nullptr) {
        return 6;
    }
    std::memcpy(dst, bytes, static_cast<size_t>(count));
    return 0;
}

int Zent_shm_memwrite(int region, const void* src, int offset, int count) {
    if (src == nullptr || platform().hit(Place::Call)) {
        return 5;
    }
    const std::lock_guard lock{platform().mutex};
    uint8_t* bytes = range_of(region, offset, count);
    if (bytes == nullptr) {
        ADD_FAILURE() << "write outside region " << region << ": " << offset << " + " << count;
        return 6;
    }
    fake::leaves(src, static_cast<size_t>(count));
    std::memcpy(bytes, src, static_cast<size_t>(count));
    platform().shm_writes.push_back({region, offset, {bytes, bytes + count}});
    return 0;
}

void* Zent_shm_get_shm(int region) {
    read_begins();
    if (platform().hit(Place::Call)) {
        return nullptr;
    }
    const std::lock_guard lock{platform().mutex};
    const auto found = platform().regions.find(region);
    return found != platform().regions.end() ? found->second.data() : nullptr;
}

// Null if there is no such card, or the call is to fail.
static const fake::State::Fru* fru_of(uint16_t id) {
    const auto found = platform().frus.find(id);
    const bool fails = platform().hit(Place::Call);
    return fails || found == platform().frus.end() ? nullptr : &found->second;
}

int Zent_shm_get_fruinfo(uint16_t fruId, void* fruInfo, const void*, uint32_t) {
    const auto* fru = fru_of(fruId);
    if (fru != nullptr) {
        std::memcpy(fruInfo, fru->info.data(), fru->info.size());
    }
    return fru != nullptr ? 0 : 1;
}

int Zent_shm_get_frudata(uint16_t fruId, void* buffer, uint32_t size) {
    const auto* fru = fru_of(fruId);
    if (fru == nullptr || size > fru->data.size()) {
        return 1;
    }
    std::copy_n(fru->data.begin(), size, static_cast<uint8_t*>(buffer));
    return 0;
}

// ---- backplane service ------------------------------------------------------------------------

constexpr uint32_t kSuccess = 0x100;  // a result has its meaning in the low byte only
constexpr uint32_t kFailure = 0x107;

static bool is_open(ZentBpApiHandle handle) {
    const std::lock_guard lock{platform().mutex};
    const bool open = platform().sessions.contains(handle);
    EXPECT_TRUE(open) << "use of a session that is not open";
    return open;
}

ZentBpApiHandle ZentBpApiOpenExec(ZentBpApiCallback callback, uint32_t, const char*, const char*,
                                  uint32_t, uint32_t) {
    if (platform().hit(Place::Call)) {
        return nullptr;
    }
    const std::lock_guard lock{platform().mutex};
    const auto handle = reinterpret_cast<ZentBpApiHandle>(platform().next_session++ << 4);
    platform().sessions[handle] = callback;
    return handle;
}

uint32_t ZentBpApiReadExec(ZentBpApiHandle handle, void* buffer5362, const char*, const char*,
                           uint32_t) {
    read_begins();
    if (!is_open(handle) || buffer5362 == nullptr || platform().hit(Place::Call)) {
        return kFailure;
    }
    std::memcpy(buffer5362, &platform().snapshot, sizeof(BpApiInfo));
    return kSuccess;
}

uint32_t ZentBpApiWriteExec(ZentBpApiHandle handle, uint32_t writeType, const void* record,
                            const char*, const char*, uint32_t) {
    if (!is_open(handle) || platform().hit(Place::BpWrite)) {
        return kFailure;
    }
    fake::BpWrite write{handle, writeType, {}};
    fake::leaves(record, sizeof(write.record));
    std::memcpy(&write.record, record, sizeof(write.record));
    platform().bp_writes.push_back(write);
    return kSuccess;
}

uint32_t ZentBpApiCloseExec(ZentBpApiHandle handle, const char*, const char*, uint32_t) {
    if (!is_open(handle)) {
        return kFailure;
    }
    const bool fails = platform().hit(Place::Call);
    const std::lock_guard lock{platform().mutex};
    platform().sessions.erase(handle);  // a close that reports an error ends the session too
    return fails ? kFailure : kSuccess;
}

const char* ZentBpApiError(uint32_t) {
    return "fake error";
}

uint32_t Zent_get_system_id(void) {
    return platform().system_id;
}

// ---- allocations ------------------------------------------------------------------------------

namespace fake {

static std::atomic<long> blocks{0};

long live_blocks() {
    return blocks;
}
AllocationScope::AllocationScope(bool on) : before_(std::exchange(in_scope, on)) {}
AllocationScope::~AllocationScope() {
    in_scope = before_;
}
bool system_call_fails() {
    return in_scope && platform().hit(Place::System);
}

static bool allocation_fails() {
    return in_scope && platform().hit(Place::Allocation);
}

static void* counted(void* block) {
    blocks += block != nullptr ? 1 : 0;
    return block;
}

}  // namespace fake

extern "C" {

#pragma GCC diagnostic ignored "-Wmissing-declarations"

void* __real_calloc(size_t count, size_t size);
void* __real_malloc(size_t size);
void __real_free(void* block);

void* __wrap_calloc(size_t count, size_t size) {
    return fake::allocation_fails() ? nullptr : fake::counted(__real_calloc(count, size));
}

void* __wrap_malloc(size_t size) {
    return fake::allocation_fails() ? nullptr : fake::counted(__real_malloc(size));
}

void __wrap_free(void* block) {
    fake::blocks -= block != nullptr ? 1 : 0;
    __real_free(block);
}
}
