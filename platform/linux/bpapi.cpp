#include "platform/bpapi.h"

#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "bpapi_state.h"
#include "bpapi_topology.h"
#include "file_watch.h"
#include "json_lines.h"
#include "os_support.h"
#include "platform/debug_log.h"

using namespace vexplatform;

namespace {

constexpr uint64_t kLargestTopology = 1 << 20;  // chosen: a full one has about 40 KB
constexpr std::string_view kFilePrefix = "file:";
constexpr uintptr_t kHandleStep = 16;  // handles look like pointers but lead nowhere

enum Result : uint32_t { Ok, NoSession, NullArgument, UnknownType, UnknownSlot, NotStored, Fault };

constexpr const char* kResultTexts[] = {
    "no error",
    "the handle is no open session",
    "a null argument",
    "unknown type of write",
    "no such bay or slot in the topology",
    "the drive state could not be stored",
    "the backplane service failed",
};

/* Who calls, for the service's own lines. */
struct Caller {
    const char* file;
    const char* func;
    uint32_t line;
};

void log_caller(const Caller& caller, const char* text) {
    zentprintf(kLogFailure, kLogModule, "backplane: %s (%s:%u): %s\n",
               caller.func != nullptr ? caller.func : "?",
               caller.file != nullptr ? caller.file : "?", caller.line, text);
}

/*
 * The topology file that VEX_BACKPLANE names.
 * Returns: empty if there is none, which reason tells.
 */
std::string topology_path(std::string& reason) {
    const std::string mode = env_text("VEX_BACKPLANE", "none");
    if (mode.starts_with(kFilePrefix) && mode.size() > kFilePrefix.size()) {
        return mode.substr(kFilePrefix.size());
    }
    if (mode == "none") {
        reason = "no backplane (VEX_BACKPLANE is unset or none)";
    } else if (mode == "sysfs") {
        reason = "VEX_BACKPLANE=sysfs is not available in this build";
    } else {
        reason = "VEX_BACKPLANE=" + mode + ": expected file:PATH or none";
    }
    return {};
}

/* Reads the topology. Throws: std::runtime_error with file, line and field. */
Topology load_topology(const std::string& path) {
    const auto text = read_file(path, kLargestTopology);
    if (!text) {
        throw std::runtime_error(path + ": " + std::strerror(errno));
    }
    try {
        return parse_topology(*text);
    } catch (const JsonError& error) {
        throw std::runtime_error(path + ':' + error.what());
    }
}

/* Gives a lock up for the time of a scope. */
class Unlocked {
  public:
    explicit Unlocked(std::unique_lock<std::mutex>& lock) : lock_(lock) { lock_.unlock(); }
    ~Unlocked() { lock_.lock(); }
    Unlocked(const Unlocked&) = delete;

  private:
    std::unique_lock<std::mutex>& lock_;
};

/*
 * The sessions and the topology that they read.
 * The thread runs while there is a session. It looks for changes and calls the callbacks; a read
 * looks too, so that it never gives less than the file has. One lock guards everything; it is not
 * held while a callback runs or a drive state is written.
 */
class Service {
  public:
    static Service& instance() {
        static Service* service =
            new Service;  // never ended: a thread may use it until the process ends
        return *service;
    }

    /* Throws: std::exception when there is no topology or no thread. */
    ZentBpApiHandle open(ZentBpApiCallback callback);
    Result read(ZentBpApiHandle handle, void* buffer);
    Result write(ZentBpApiHandle handle, const BpDriveStateWrite& record);
    Result close(ZentBpApiHandle handle);
    uint32_t system_id();

  private:
    struct Session {
        ZentBpApiHandle handle;
        ZentBpApiCallback callback;
        uint64_t seen;  // version that needs no callback any more
    };
    using Lock = std::unique_lock<std::mutex>;

    // Callers of all of these hold the lock.
    std::vector<Session>::iterator find(ZentBpApiHandle handle) {
        return std::find_if(sessions_.begin(), sessions_.end(),
                            [&](const Session& s) { return s.handle == handle; });
    }
    void start(const std::string& path);
    void refresh();
    void deliver(Lock& lock);
    void forget_gone_drives(Lock& lock);

    void run();
    void wake() const { eventfd_write(wake_.get(), 1); }

    std::mutex mutex_;
    std::condition_variable changed_;  // a callback returned, or the thread ends
    std::vector<Session> sessions_;
    uintptr_t last_handle_ = 0;

    std::thread thread_;
    bool active_ = false;  // the thread has not decided to end
    ZentBpApiHandle calling_ = nullptr;
    UniqueFd wake_;

    std::string path_;
    std::string state_path_;
    std::string complaint_;  // about the file as it is, logged once
    FileStamp stamp_;
    Topology topology_;
    uint64_t version_ = 0;  // counts the changes of topology_
    BpApiInfo lit_ = {};    // the snapshot for which the drive states were last cleared up
};

void Service::start(const std::string& path) {
    if (thread_.joinable()) {
        thread_.join();  // it has decided to end and needs the lock no more
    }
    FileStamp stamp;
    stamp.changed(path);
    topology_ = load_topology(path);
    stamp_ = stamp;
    path_ = path;
    state_path_ = env_text("VEX_BACKPLANE_STATE", (path + ".state").c_str());
    complaint_.clear();
    lit_ = topology_.info;
    wake_ = UniqueFd{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    if (!wake_) {
        throw std::runtime_error(std::strerror(errno));
    }

    // Signals of the process are for the threads that expect them.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        thread_ = std::thread{[this] { run(); }};
        active_ = true;
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

ZentBpApiHandle Service::open(ZentBpApiCallback callback) {
    Lock lock{mutex_};
    if (std::this_thread::get_id() != thread_.get_id()) {
        // The last session was closed in a callback: its thread ends first, settings are read anew.
        changed_.wait(lock, [&] { return !active_ || !sessions_.empty(); });
    }
    sessions_.reserve(sessions_.size() + 1);
    if (!active_) {
        std::string reason;
        const std::string path = topology_path(reason);
        if (path.empty()) {
            throw std::runtime_error(reason);
        }
        start(path);
    }
    last_handle_ += kHandleStep;
    // Never the handle of an earlier session, so that one used after its end is refused.
    const auto handle = reinterpret_cast<ZentBpApiHandle>(last_handle_);
    sessions_.push_back({handle, callback, version_});
    return handle;
}

Result Service::read(ZentBpApiHandle handle, void* buffer) {
    const Lock lock{mutex_};
    if (find(handle) == sessions_.end()) {
        return NoSession;
    }
    const uint64_t before = version_;
    refresh();
    if (version_ != before) {
        wake();
    }
    std::memcpy(buffer, &topology_.info, sizeof topology_.info);
    return Ok;
}

Result Service::write(ZentBpApiHandle handle, const BpDriveStateWrite& record) {
    std::string path;
    {
        const Lock lock{mutex_};
        if (find(handle) == sessions_.end()) {
            return NoSession;
        }
        if (!has_slot(topology_.info, record.bayId, record.slot)) {
            return UnknownSlot;
        }
        path = state_path_;
    }
    const int error = store_drive_state(path, record);
    if (error != 0) {
        zentprintf(kLogFailure, kLogModule, "backplane: %s: %s\n", path.c_str(),
                   std::strerror(error));
        return NotStored;
    }
    return Ok;
}

Result Service::close(ZentBpApiHandle handle) {
    Lock lock{mutex_};
    const auto session = find(handle);
    if (session == sessions_.end()) {
        return NoSession;
    }
    sessions_.erase(session);
    if (std::this_thread::get_id() == thread_.get_id()) {
        return Ok;  // from a callback: the thread looks at the sessions when it returns
    }
    changed_.wait(lock, [&] { return calling_ != handle; });
    if (!sessions_.empty()) {
        return Ok;
    }
    wake();
    changed_.wait(lock, [&] { return !active_ || !sessions_.empty(); });
    if (!active_ && thread_.joinable()) {
        thread_.join();
        wake_.reset();
    }
    return Ok;
}

uint32_t Service::system_id() {
    const Lock lock{mutex_};
    if (active_) {
        return topology_.system_id;
    }
    std::string reason;
    const std::string path = topology_path(reason);
    return path.empty() ? 0 : load_topology(path).system_id;
}

/* Takes over the file's content if it changed and is good. */
void Service::refresh() {
    if (!stamp_.changed(path_)) {
        return;
    }
    try {
        const Topology fresh = load_topology(path_);
        complaint_.clear();
        topology_.system_id = fresh.system_id;
        if (std::memcmp(&fresh.info, &topology_.info, sizeof fresh.info) != 0) {
            topology_.info = fresh.info;
            ++version_;
        }
    } catch (const std::exception& error) {
        if (complaint_ != error.what()) {
            complaint_ = error.what();
            zentprintf(kLogFailure, kLogModule, "backplane: %s; the topology stays as it was\n",
                       error.what());
        }
    }
}

void Service::deliver(Lock& lock) {
    const BpApiInfo info = topology_.info;
    const uint64_t version = version_;
    const auto waiting = [&](const Session& s) { return s.seen < version; };
    for (auto next = std::find_if(sessions_.begin(), sessions_.end(), waiting);
         next != sessions_.end();
         next = std::find_if(sessions_.begin(), sessions_.end(), waiting)) {
        next->seen = version;
        const ZentBpApiCallback callback = next->callback;
        if (callback == nullptr) {
            continue;
        }
        calling_ = next->handle;
        {
            const Unlocked unlocked{lock};
            callback(&info);
        }
        calling_ = nullptr;
        changed_.notify_all();
    }
}

/* A drive that was taken out takes its state along: the next one in its slot does not blink. */
void Service::forget_gone_drives(Lock& lock) {
    if (std::memcmp(&lit_, &topology_.info, sizeof lit_) == 0) {
        return;
    }
    const BpApiInfo before = lit_;
    const BpApiInfo now = lit_ = topology_.info;
    const std::string path = state_path_;
    const Unlocked unlocked{lock};
    const int error = drop_drive_states(path, [&](uint8_t bay, uint8_t slot) {
        return has_drive(before, bay, slot) && !has_drive(now, bay, slot);
    });
    if (error != 0) {
        zentprintf(kLogWarning, kLogModule, "backplane: %s: %s\n", path.c_str(),
                   std::strerror(error));
    }
}

void Service::run() {
    std::string path;
    {
        const Lock lock{mutex_};
        path = path_;
    }
    FileWatch watch{path};
    Lock lock{mutex_};
    while (!sessions_.empty()) {
        try {
            refresh();
            forget_gone_drives(lock);
        } catch (const std::exception& error) {
            zentprintf(kLogFailure, kLogModule, "backplane: %s\n", error.what());
        }
        deliver(lock);
        if (!sessions_.empty()) {
            const Unlocked unlocked{lock};
            watch.wait(wake_.get());
        }
    }
    active_ = false;
    changed_.notify_all();
}

/* Runs one call into the service. Returns: its result; failures are logged with the caller. */
template <typename Work>
uint32_t guarded(const Caller& caller, const Work& work) {
    Result result = Fault;
    try {
        result = work();
    } catch (const std::exception& error) {
        log_caller(caller, error.what());
        return Fault;
    }
    if (result != Ok) {
        log_caller(caller, kResultTexts[result]);
    }
    return result;
}

}  // namespace

ZentBpApiHandle ZentBpApiOpenExec(ZentBpApiCallback callback, uint32_t /*zero*/, const char* file,
                                  const char* func, uint32_t line, uint32_t /*zero2*/) {
    try {
        return Service::instance().open(callback);
    } catch (const std::exception& error) {
        log_caller({file, func, line}, error.what());
        return nullptr;
    }
}

uint32_t ZentBpApiReadExec(ZentBpApiHandle handle, void* buffer5362, const char* file,
                           const char* func, uint32_t line) {
    return guarded({file, func, line}, [&] {
        return buffer5362 == nullptr ? NullArgument : Service::instance().read(handle, buffer5362);
    });
}

uint32_t ZentBpApiWriteExec(ZentBpApiHandle handle, uint32_t writeType, const void* record,
                            const char* file, const char* func, uint32_t line) {
    return guarded({file, func, line}, [&] {
        if (record == nullptr) {
            return NullArgument;
        }
        if (writeType != BPAPI_WRITE_DRIVE_STATE) {
            return UnknownType;
        }
        BpDriveStateWrite write;
        std::memcpy(&write, record, sizeof write);
        return Service::instance().write(handle, write);
    });
}

uint32_t ZentBpApiCloseExec(ZentBpApiHandle handle, const char* file, const char* func,
                            uint32_t line) {
    return guarded({file, func, line}, [&] { return Service::instance().close(handle); });
}

const char* ZentBpApiError(uint32_t code) {
    const uint32_t result = code & 0xFF;
    return result < std::size(kResultTexts) ? kResultTexts[result] : nullptr;
}

uint32_t Zent_get_system_id(void) {
    try {
        return Service::instance().system_id();
    } catch (const std::exception& error) {
        log_caller({nullptr, __func__, 0}, error.what());
        return 0;
    }
}
