// State of the trace log, and the paths of the files that switch behaviour. Constant-initialised:
// the log is usable from other libraries' constructors.
#ifndef VEXUTILS_INTERNAL_VEXEL_STATE_H
#define VEXUTILS_INTERNAL_VEXEL_STATE_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "internal/lock_annotations.h"
#include "vexel.h"

namespace vexutils {

using LogMutex VEX_LOCK = pthread_mutex_t;

}  // namespace vexutils

extern "C" vexutils::LogMutex logmutex;  // under a type that can guard

namespace vexutils {

enum class LogInit : std::uint8_t { None = 0, NoFile = 1, Done = 4 };
enum class LogFile : std::uint32_t { NotChecked = 0, Disabled = 1, Enabled = 2 };

struct LogState {
    std::atomic<LogInit> init{LogInit::None};
    std::atomic<LogFile> file{LogFile::NotChecked};
    std::uint32_t depth VEX_GUARDED_BY(logmutex) = 0;  // lines in the file
};
extern constinit LogState log_state;

// A service engineer creates these files on the controller; only tests point them elsewhere.
struct FlagPaths {
    const char* log_disabled = "/flash/data0/oem_ps/vexel_log_disabled";
    const char* hba_disabled = "/flash/data0/oem_ps/vexel_sashba_disabled";
    const char* tavi_disabled = "/flash/data0/oem_ps/vexel_tavi_disabled";
    const char* tavi_poll = "/flash/data0/oem_ps/vexel_tavi_poll";
    const char* disk_thermal_disabled = "/flash/data0/oem_ps/pdthermaldisabled";
    const char* dump_request = "/tmp/rtdump";
    const char* cache_dump = "/tmp/vexel_cache.log";
    const char* ssd_status = "/tmp/ssdstatus.txt";
    const char* ssd_fru = "/tmp/ssdfru.bin";
};
extern constinit FlagPaths flag_paths;

// Whether a file exists, as stat sees it.
bool file_exists(const char* path);

}  // namespace vexutils

#endif  // VEXUTILS_INTERNAL_VEXEL_STATE_H
