// A program of calls on the endpoint table and the event areas, compared with a model after every
// step.
#include <gtest/gtest.h>

#include <algorithm>

#include "fuzz/fuzz.h"
#include "rt_cache.h"
#include "vexel.h"

namespace {

using fuzz::Input;

constexpr uint32_t kFree = 255;

// The endpoint table as its rules say, written the slow way.
struct Model {
    struct Row {
        uint32_t eid = kFree, type = 0, events = 0;
    };
    std::vector<Row> rows{max_adapters};
    uint32_t used = 0;  // positions up to the highest that was ever in use

    uint32_t row(uint32_t eid) const {
        const auto found = std::ranges::find(rows, eid, &Row::eid);
        return found == rows.end() || eid == kFree ? 255
                                                   : static_cast<uint32_t>(found - rows.begin());
    }
    bool add(uint32_t eid, uint32_t type) {
        const auto free = std::ranges::find(rows, kFree, &Row::eid);
        if (free == rows.end() || eid == kFree) {
            return false;
        }
        free->eid = eid;
        free->type = type;
        used = std::max(used, static_cast<uint32_t>(free - rows.begin()) + 1);
        return true;
    }
    void remove(uint32_t eid, uint32_t type) {
        for (Row& row : rows) {
            if (row.eid == eid && row.type == type) {
                row.eid = kFree;
            }
        }
    }
};

void run_step(Input& input, Model& model) {
    const uint32_t step = input.below(6);
    const uint32_t eid = input.below(16) == 15 ? 255 : input.below(12);
    const auto key = input.any<uint16_t>();
    const uint32_t type = 1 + key % 3;
    const uint32_t row = model.row(eid);
    const uint32_t known = row == 255 ? 1 : 0;
    const bool locks = step >= 3;
    if (locks) {
        EXPECT_EQ(rtcache_GetLock(), 0u);
    }
    switch (step) {
        case 0:
            EXPECT_EQ(rtcache_UpdateCachedObject(RTCACHE_REGISTER, eid, type, 0) == 0,
                      model.add(eid, type));
            break;
        case 1:
            rtcache_UpdateCachedObject(2, eid, type, 0);
            model.remove(eid, type);
            break;
        case 2: {
            RtCacheEventRow* list = nullptr;
            RtCacheDiskChangeRow* disks = nullptr;
            EXPECT_EQ(rtcache_GetCachedEvents(eid, &list, &disks), known);
            EXPECT_TRUE(known != 0 ||
                        list->eventCount == std::exchange(model.rows[row].events, 0u));
            vexel_free(list);
            vexel_free(disks);
            break;
        }
        case 3:
            // Now and then as many as overflow the list.
            for (int count = input.below(16) == 15 ? 300 : 1; count > 0; --count) {
                EXPECT_EQ(rtcache_CopyCachedEvent(eid, 4, 1, key, nullptr), known);
                if (known == 0) {
                    uint32_t& events = model.rows[row].events;
                    events = events == RTCACHE_EVENTCACHE_DEPTH ? 1 : events + 1;
                }
            }
            break;
        case 4:
            rtcache_SetDelayedCachedEvent(eid, 3, 3, key);
            rtcache_PurgeDelayedCachedEvents(eid, 7);
            break;
        default:
            const uint32_t key_type = input.below(11);
            void* object = nullptr;
            rtcache_GetCachedObject(key_type, eid, key, &object);
            EXPECT_TRUE(object == nullptr || key_type == RTCACHE_KEY_EID) << "nothing was stored";
            break;
    }
    if (locks) {
        EXPECT_EQ(GetIndexFromEID(eid), model.row(eid));
        SMMutexUnLock(mutexRtCache);
    }
    EXPECT_EQ(rtcache_GetStorageEIDCount(), model.used);
}

void run(Input& input) {
    EXPECT_EQ(rtcache_Init(), 0u);
    Model model;
    for (int steps = 0; steps < 1000 && input.left() != 0; ++steps) {
        run_step(input, model);
    }
    rtcache_Destroy();
}
const fuzz::Target target{"cache", run};

}  // namespace
