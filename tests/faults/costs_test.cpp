// What operations cost, counted: lines to the debug log, calls of the C library for the log file,
// allocations. With the file on, lines are nearly all of an operation's time, so a line more is
// slower code.
#include <gtest/gtest.h>

#include "internal/vexel_state.h"
#include "notifQue.h"
#include "rt_evtq.h"
#include "rt_shm.h"
#include "tests/faults/world.h"
#include "tests/support/rows.h"
#include "vexel.h"

namespace faults {
namespace {

using fake::Place;

struct Cost {
    int lines, allocations;
    int calls = 0;   // of the C library, beside the log file's: a look at a flag file
    int dumped = 0;  // of the lines, those of a dump: they stay out of the log file
};

Cost count(void (*operation)()) {
    fake::Platform& platform = fake::platform();
    platform.clear_lines();
    platform.fail(Place::Allocation, 0);
    const int calls = platform.calls(Place::System);
    platform.treat_lines(fake::Platform::Lines::Recorded);
    {
        const fake::AllocationScope scope;
        operation();
    }
    platform.treat_lines(fake::Platform::Lines::Dropped);
    return {static_cast<int>(platform.lines().size()), platform.calls(Place::Allocation),
            platform.calls(Place::System) - calls};
}

void fetch() {
    void* node = nullptr;
    EXPECT_EQ(rtcache_GetCachedObject(RTCACHE_KEY_DISK, kKron, kDiskKey, &node), 0u);
}

void drain() {
    RtCacheEventRow* events = nullptr;
    RtCacheDiskChangeRow* disks = nullptr;
    EXPECT_EQ(rtcache_GetCachedEvents(kHba, &events, &disks), 0u);
    const fake::AllocationPause pause;
    vexel_free(events);
    vexel_free(disks);
}

void queue_event() {
    EndpointEvent event{1, 0, {0}};
    rtraid_EventQueue_SetStatus(RTRAID_EVTQ_READY);
    EXPECT_EQ(rtraid_EventQueue_Put(&event), 0);
    vexel_free(rtraid_EventQueue_Get());
}

void queue_message() {
    void* message = nullptr;
    EXPECT_EQ(AddEvt(queue, queue), 0);
    EXPECT_EQ(removeMsg(queue, &message), 0);
}

const Rows<const char*, Cost, void (*)()> kOperations{
    {"endpoint look-up", {0, 0}, [] { EXPECT_NE(GetIndexFromEID(kKron), 255u); }},
    {"fetched object", {0, 0}, fetch},
    {"list event", {2, 0}, [] { rtcache_CopyCachedEvent(kKron, 4, 1, 1, nullptr); }},
    {"disk change", {5, 0}, [] { rtcache_CopyCachedEvent(kKron, 3, 3, 1, nullptr); }},
    {"drained endpoint", {2, 2}, drain},
    {"event through the endpoint queue", {11, 2}, queue_event},
    {"message through the notification queue", {10, 1}, queue_message},
    {"inventory update", {67, 2, 1, 34}, [] { EXPECT_EQ(RTSHM_UpdateSharedMem(1), 0u); }},
};

// A line is one open, one write and one close; the close is not counted here.
TEST(Costs, LinesCallsAndAllocationsOfAnOperationAreFixed) {
    for (const bool file : {false, true}) {
        for (const auto& [what, expected, run] : kOperations) {
            const World world;
            vexutils::log_state.file =
                file ? vexutils::LogFile::Enabled : vexutils::LogFile::Disabled;
            const Cost counted = count(run);
            EXPECT_EQ(counted.lines, expected.lines);
            EXPECT_EQ(counted.allocations, expected.allocations);
            const int logged = file ? expected.lines - expected.dumped : 0;
            EXPECT_EQ(counted.calls, expected.calls + 2 * logged) << "file " << file;
        }
    }
}

}  // namespace
}  // namespace faults
