// A program of calls on the endpoint table and the event areas, compared with a model after every
// step.
#include <cstdlib>
#include <map>
#include <vector>

#include "fuzz/fuzz_platform.h"
#include "rt_cache.h"
#include "vexel.h"

namespace {

constexpr std::uint32_t kFree = 255;

// The endpoint table as its rules say, written the slow way.
struct Model {
    std::vector<std::uint32_t> positions = std::vector<std::uint32_t>(max_adapters, kFree);
    std::vector<std::uint32_t> types = std::vector<std::uint32_t>(max_adapters, 0);
    std::vector<std::uint32_t> events = std::vector<std::uint32_t>(max_adapters, 0);
    std::uint32_t count = 0;

    std::uint32_t row(std::uint32_t eid) const {
        for (std::uint32_t i = 0; i < positions.size() && eid < kFree; ++i) {
            if (positions[i] == eid) {
                return i;
            }
        }
        return kFree;
    }
    void add(std::uint32_t eid, std::uint32_t type) {
        for (std::uint32_t i = 0; i < positions.size(); ++i) {
            if (positions[i] == kFree) {
                positions[i] = eid;
                types[i] = type;
                count = i >= count ? count + 1 : count;
                return;
            }
        }
    }
    void remove(std::uint32_t eid, std::uint32_t type) {
        for (std::uint32_t i = 0; i < positions.size(); ++i) {
            if (positions[i] == eid && types[i] == type) {
                positions[i] = kFree;
                types[i] = 0;
            }
        }
    }
};

void expect(bool holds) {
    if (!holds) {
        std::abort();
    }
}

void drain(std::uint32_t eid, Model& model) {
    RtCacheEventRow* events = nullptr;
    RtCacheDiskChangeRow* disks = nullptr;
    const std::uint32_t row = model.row(eid);
    const std::uint32_t result = rtcache_GetCachedEvents(eid, &events, &disks);
    expect(result == (row == kFree ? 1u : 0u));
    if (result == 0) {
        expect(events->eventCount == model.events[row]);
        model.events[row] = 0;
        vexel_free(events);
        vexel_free(disks);
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::reset();
    fuzz::Input input{data, size < 4096 ? size : 4096};
    max_adapters = 8;
    expect(rtcache_Init() == 0);
    Model model;
    while (!input.empty()) {
        const std::uint8_t step = input.byte();
        const std::uint32_t eid = input.byte() % 16 == 15 ? 255u : input.byte() % 12;
        const std::uint32_t key = input.number<std::uint16_t>();
        switch (step % 6) {
            case 0:
                if (rtcache_UpdateCachedObject(RTCACHE_REGISTER, eid, 1 + key % 3, 0) == 0) {
                    model.add(eid, 1 + key % 3);
                }
                break;
            case 1:
                rtcache_UpdateCachedObject(2, eid, 1 + key % 3, 0);
                model.remove(eid, 1 + key % 3);
                break;
            case 2: {
                rtcache_GetLock();
                const std::uint32_t row = model.row(eid);
                const std::uint32_t result = rtcache_CopyCachedEvent(eid, 4, 1, key, nullptr);
                expect(result == (row == kFree ? 1u : 0u));
                if (row != kFree) {
                    model.events[row] =
                        model.events[row] == RTCACHE_EVENTCACHE_DEPTH ? 1 : model.events[row] + 1;
                }
                SMMutexUnLock(mutexRtCache);
                break;
            }
            case 3:
                drain(eid, model);
                break;
            case 4:
                rtcache_GetLock();
                rtcache_SetDelayedCachedEvent(eid, 3, 3, key);
                rtcache_PurgeDelayedCachedEvents(eid, 7);
                SMMutexUnLock(mutexRtCache);
                break;
            default:
                rtcache_GetLock();
                void* object = nullptr;
                rtcache_GetCachedObject(step % 11, eid, static_cast<std::uint16_t>(key), &object);
                expect(GetIndexFromEID(eid) == model.row(eid));
                SMMutexUnLock(mutexRtCache);
                break;
        }
        expect((rtcache_GetStorageEIDCount() & 0xFF) == (model.count & 0xFF));
        expect(fuzz::platform().locks_held == 0);
    }
    rtcache_Destroy();
    return 0;
}
