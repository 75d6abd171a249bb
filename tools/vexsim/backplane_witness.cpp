#include "vexsim/backplane_witness.h"

#include <condition_variable>
#include <cstring>
#include <mutex>
#include <stdexcept>

namespace vexsim {

namespace {

std::mutex mutex;
std::condition_variable arrived;
BpApiInfo latest;  // guarded by mutex

void note_snapshot(const BpApiInfo* info) {
    if (info == nullptr) {
        return;
    }
    const std::lock_guard lock(mutex);
    latest = *info;
    arrived.notify_all();
}

}  // namespace

BackplaneWitness::BackplaneWitness()
    : session_(ZentBpApiOpenExec(&note_snapshot, 0, __FILE__, __func__, __LINE__, 0)) {
    if (session_ == nullptr) {
        throw std::runtime_error("the backplane service gives no session");
    }
    const BpApiInfo now = read();
    note_snapshot(&now);
}

BackplaneWitness::~BackplaneWitness() {
    ZentBpApiCloseExec(session_, __FILE__, __func__, __LINE__);
}

BpApiInfo BackplaneWitness::read() const {
    BpApiInfo info{};
    if ((ZentBpApiReadExec(session_, &info, __FILE__, __func__, __LINE__) & 0xFF) != 0) {
        throw std::runtime_error("the backplane service gives no snapshot");
    }
    return info;
}

bool BackplaneWitness::wait_for(const BpApiInfo& snapshot,
                                std::chrono::milliseconds time_out) const {
    std::unique_lock lock(mutex);
    return arrived.wait_for(lock, time_out,
                            [&] { return std::memcmp(&latest, &snapshot, sizeof(latest)) == 0; });
}

}  // namespace vexsim
