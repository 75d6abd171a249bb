// Events recorded, held back, purged and drained at once: each comes out exactly once.
#include "rt_cache/rt_cache_nodes.h"
#include "tests/support/objects.h"
#include "tests/threads/quiet_log.h"

namespace {

constexpr uint32_t kEid = 8, kChanged = 3;
constexpr unsigned kWriters = 4;      // every second one holds its events back
const unsigned kEach = kEvents / 40;  // the cache logs two bitmaps an event
constexpr uint32_t kRoom = RTCACHE_EVENTCACHE_DEPTH / 2 - 1;  // a purge never overflows the list

class CacheEvents : public QuietLog {
  protected:
    static void record(bool held, uint32_t type, uint32_t key) {
        const bool has_data = !held && type == RT_OBJ_ADAPTER;
        auto* data = has_data ? static_cast<EventData*>(vexel_alloc(sizeof(EventData))) : nullptr;
        EXPECT_EQ(held ? rtcache_SetDelayedCachedEvent(kEid, type, kChanged, key)
                       : rtcache_SetCachedEvent_roll_up(kEid, type, kChanged, key, data),
                  0u);
    }

    // Each key is told of as an event of the list and, while there are disks, as a changed disk.
    static void write(unsigned writer) {
        const bool held = writer % 2 != 0;
        for (unsigned key = writer; key < kWriters * kEach;) {
            const CacheLock lock;
            if (cache_Events[0].eventCount < kRoom && cache_Events_delayed[0].eventCount < kRoom) {
                record(held, RT_OBJ_ADAPTER, key);
                if (key < RTCACHE_DISK_SLOTS) {
                    record(held, RT_OBJ_PHYSICAL_DISK, key);
                }
                key += kWriters;
            }
        }
    }

    static void purge() {
        const CacheLock lock;
        if (cache_Events[0].eventCount < kRoom) {
            EXPECT_EQ(rtcache_PurgeDelayedCachedEvents(kEid, 0), 0u);
        }
    }

    void drain() {
        RtCacheEventRow* events = nullptr;
        RtCacheDiskChangeRow* disks = nullptr;
        ASSERT_EQ(rtcache_GetCachedEvents(kEid, &events, &disks), 0u);
        for (uint32_t i = 0; i < events->eventCount; ++i) {
            count(events_seen_, events->events[i].objKey);
            vexutils::free_event_data(events->events[i].eventData);
        }
        for (unsigned disk = 0; disk < RTCACHE_DISK_SLOTS; ++disk) {
            if ((disks->bitmap[disk / 8] >> (disk % 8) & 1) != 0) {
                count(disks_seen_, disk);
            }
        }
        vexel_free(events);
        vexel_free(disks);
    }

    using Counters = std::vector<std::atomic<unsigned>>;
    Counters events_seen_ = Counters(kWriters * kEach);
    Counters disks_seen_ = Counters(RTCACHE_DISK_SLOTS);

  private:
    // Relaxed: it must not order what the cache lock should.
    static void count(Counters& counters, uint32_t key) {
        counters.at(key).fetch_add(1, std::memory_order_relaxed);
    }
};

TEST_F(CacheEvents, AreNeitherLostNorDoubledAcrossPurgesAndDrains) {
    ASSERT_EQ(rtcache_Init(), 0u);
    ASSERT_EQ(rtcache_UpdateCachedObject(RTCACHE_REGISTER, kEid, RTCACHE_TYPE_KRON, 0), 0u);
    std::atomic<bool> stop{false};
    std::vector<std::jthread> writers, others;
    for (const bool purges : {true, false, false}) {
        others.emplace_back([&, purges] {
            while (!stop.load(std::memory_order_relaxed)) {
                purges ? purge() : drain();
            }
        });
    }
    for (unsigned writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([writer] { write(writer); });
    }
    writers.clear();
    stop = true;
    others.clear();
    drain();  // what was recorded makes room for what is still held back
    purge();
    drain();

    for (const Counters* seen : {&events_seen_, &disks_seen_}) {
        for (size_t key = 0; key < seen->size(); ++key) {
            ASSERT_EQ((*seen)[key].load(), key < kWriters * kEach ? 1u : 0u) << "key " << key;
        }
    }
    std::printf("figures: R5 operations=%zu\n", events_seen_.size() + disks_seen_.size());
    EXPECT_EQ(rtcache_Destroy(), 0u);
}

}  // namespace
