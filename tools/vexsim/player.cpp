#include "vexsim/player.h"

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <csignal>
#include <cstdlib>
#include <thread>

#include "vexsim/runtime_failure.h"

namespace vexsim {

namespace {

constexpr int64_t kMillisecondsPerSecond = 1000;
constexpr int64_t kProgressInterval = 2000;              // chosen: seldom enough to read
constexpr std::chrono::milliseconds kLongestSleep{100};  // chosen: how late a signal may act
// Start of virtual time for what carries a date: 2024-01-01 00:00:00 UTC. Chosen.
constexpr int64_t kEpoch = 1'704'067'200;

volatile std::sig_atomic_t stop_asked = 0;

void ask_to_stop(int) {
    stop_asked = 1;
}

int64_t real_milliseconds() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

// Sleeps until a real moment. Returns: false if a signal asked to stop.
bool sleep_until(int64_t moment) {
    while (stop_asked == 0) {
        const int64_t left = moment - real_milliseconds();
        if (left <= 0) {
            return true;
        }
        std::this_thread::sleep_for(std::min(std::chrono::milliseconds(left), kLongestSleep));
    }
    return false;
}

// The platform's records carry virtual time, so that runs can be compared.
void set_clock(int64_t now) {
    char text[40];
    std::snprintf(text, sizeof(text), "%" PRId64 ".%03" PRId64,
                  kEpoch + now / kMillisecondsPerSecond, now % kMillisecondsPerSecond);
    setenv("VEX_CLOCK", text, 1);
}

}  // namespace

void stop_on_signals() {
    struct sigaction action = {};
    action.sa_handler = &ask_to_stop;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(number, &action, nullptr);
    }
}

Player::Player(const Scenario& scenario, const PlayOptions& options, Transcript& transcript)
    : scenario_(scenario),
      options_(options),
      transcript_(transcript),
      server_(scenario, options.folder),
      daemon_(scenario, options.seed, transcript) {}

bool Player::play() {
    started_at_ = reported_at_ = real_milliseconds();
    set_clock(0);
    transcript_.line("scenario: %s, seed %" PRIu64, scenario_.name.c_str(), options_.seed);
    bool finished = false;
    try {
        server_.power_on();
        daemon_.start_up();
        server_.watch_backplane();
        finished = play_steps();
        write_endpoints();
        finished = finished && sleep_until(real_milliseconds() +
                                           options_.hold_seconds * kMillisecondsPerSecond);
    } catch (...) {
        server_.stop_watching();
        daemon_.shut_down();
        throw;
    }
    server_.stop_watching();
    daemon_.shut_down();
    return finished;
}

bool Player::play_steps() {
    for (size_t i = 0; i < scenario_.steps.size(); ++i) {
        const Step& step = scenario_.steps[i];
        if (!wait_until(step.at)) {
            return false;
        }
        std::visit([this](const auto& action) { act(action); }, step.action);
        report_progress(i + 1);
    }
    return wait_until(std::max(scenario_.duration, transcript_.now()));
}

bool Player::wait_until(int64_t at) {
    const bool in_time =
        options_.speed <= 0
            ? stop_asked == 0
            : sleep_until(started_at_ +
                          static_cast<int64_t>(static_cast<double>(at) / options_.speed));
    if (in_time) {
        transcript_.set_time(at);
        set_clock(at);
    }
    return in_time;
}

void Player::report_progress(size_t done) {
    const int64_t now = real_milliseconds();
    if (now - reported_at_ < kProgressInterval) {
        return;
    }
    reported_at_ = now;
    std::fprintf(stderr, "vexsim: %" PRId64 " of %" PRId64 " s, step %zu of %zu\n",
                 transcript_.now() / kMillisecondsPerSecond,
                 scenario_.duration / kMillisecondsPerSecond, done, scenario_.steps.size());
}

void Player::act(const PollStep&) {
    daemon_.poll();
    write_endpoints();
    ++polls_;
    if (options_.after_poll.empty()) {
        return;
    }
    setenv("VEXSIM_POLL", std::to_string(polls_).c_str(), 1);
    setenv("VEXSIM_SECONDS", std::to_string(transcript_.now() / kMillisecondsPerSecond).c_str(), 1);
    const int status = std::system(options_.after_poll.c_str());
    if (status != 0) {
        throw RuntimeFailure("the command of --after-poll failed: " + options_.after_poll);
    }
}

void Player::act(const NoteStep& step) {
    transcript_.line("-- %s", step.text.c_str());
}

void Player::act(const DriveStep& step) {
    const DriveRef found = daemon_.find_drive(step.fqdd);
    transcript_.line("%s %s", step.plug ? "plug" : "pull", step.fqdd.c_str());
    const bool noticed = found.nvme != nullptr
                             ? server_.set_drive(found.nvme->bay, found.nvme->slot, step.plug)
                             : found.drive->bay && server_.set_drive(*found.drive->bay,
                                                                     found.drive->slot, step.plug);
    if (found.nvme != nullptr) {
        server_.count_ssd_presence();
        daemon_.note_ssd_presence(*found.nvme);
    }
    if (noticed) {
        daemon_.answer_hot_plug();
    }
    if (step.plug) {
        daemon_.insert_drive(step.fqdd, step.model);
    } else {
        daemon_.remove_drive(step.fqdd);
    }
}

void Player::act(const IdentifyStep& step) {
    const char* ipmi = std::getenv("VEX_IPMI");
    daemon_.identify(step, ipmi != nullptr && *ipmi != '\0');
    const NvmeDrive& drive = *daemon_.find_drive(step.fqdd).nvme;
    const bool blinks = server_.written_state(drive.bay, drive.slot) == BPAPI_DRIVE_STATE_IDENTIFY;
    if (blinks != step.blink) {
        throw RuntimeFailure("the backplane service did not get what was written to " + step.fqdd);
    }
    transcript_.line("%s: %s at the backplane", step.fqdd.c_str(),
                     blinks ? "blinks" : "shows its state");
}

void Player::act(const TopologyStep& step) {
    const bool noticed = server_.replace_topology(step.topology);
    transcript_.line("topology %s: %s", step.name.c_str(), noticed ? "changed" : "no change");
    if (noticed) {
        daemon_.answer_hot_plug();
    }
}

void Player::act(const ThermalStep& step) {
    server_.set_thermal(step.settings);
    transcript_.line("thermal settings: HBA drive polling %s, KRON drive polling %s",
                     step.settings.disable_hba ? "off" : "on",
                     step.settings.disable_kron ? "off" : "on");
}

}  // namespace vexsim
