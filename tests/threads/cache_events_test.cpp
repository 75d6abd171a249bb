// Events recorded, held back, purged and drained at once: each comes out exactly once.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <numeric>
#include <thread>
#include <vector>

#include "rt_cache.h"
#include "rt_cache/rt_cache_nodes.h"
#include "tests/threads/quiet_log.h"

namespace {

constexpr uint32_t kEid = 8, kDisk = RT_OBJ_PHYSICAL_DISK, kChanged = 3;
constexpr unsigned kWriters = 4;                         // every second one holds its events back
constexpr unsigned kEach = VEX_THREAD_TEST_EVENTS / 40;  // the cache logs two bitmaps an event
constexpr unsigned kDisksEach = RTCACHE_DISK_SLOTS / kWriters;
constexpr uint32_t kRoom = RTCACHE_EVENTCACHE_DEPTH / 2 - 1;  // a purge never overflows the list

struct CacheLock {
    CacheLock() { rtcache_GetLock(); }
    ~CacheLock() { SMMutexUnLock(mutexRtCache); }
    CacheLock(const CacheLock&) = delete;
};

// Relaxed counters: they must not order what the cache lock should.
class CacheEvents : public QuietLog {
  protected:
    void write(unsigned writer) {
        std::array<unsigned, kDisksEach> told{};
        for (unsigned number = 0; number < kEach;) {
            const CacheLock lock;
            if (cache_Events[0].eventCount >= kRoom ||
                cache_Events_delayed[0].eventCount >= kRoom) {
                continue;
            }
            const bool held = writer % 2 != 0;
            record(held, 0, 1, writer * kEach + number);
            // A disk that is told of again before it was seen comes out once.
            const unsigned mine = number++ % kDisksEach;
            const unsigned disk = writer * kDisksEach + mine;
            if (disks_seen_[disk].load(std::memory_order_relaxed) == told[mine]) {
                record(held, kDisk, kChanged, disk);
                ++told[mine];
                disks_told_.fetch_add(1, std::memory_order_relaxed);
            }
        }
    }

    void purge_until(const std::atomic<bool>& stop) {
        while (!stop.load(std::memory_order_relaxed)) {
            const CacheLock lock;
            if (cache_Events[0].eventCount < kRoom) {
                EXPECT_EQ(rtcache_PurgeDelayedCachedEvents(kEid, 0), 0u);
            }
        }
    }

    void drain() {
        RtCacheEventRow* events = nullptr;
        RtCacheDiskChangeRow* disks = nullptr;
        ASSERT_EQ(rtcache_GetCachedEvents(kEid, &events, &disks), 0u);
        for (uint32_t i = 0; i < events->eventCount; ++i) {
            events_seen_.at(events->events[i].objKey).fetch_add(1, std::memory_order_relaxed);
            vexutils::free_event_data(events->events[i].eventData);
        }
        for (unsigned disk = 0; disk < RTCACHE_DISK_SLOTS; ++disk) {
            if ((disks->bitmap[disk / 8] >> (disk % 8) & 1) != 0) {
                disks_seen_[disk].fetch_add(1, std::memory_order_relaxed);
            }
        }
        vexel_free(events);
        vexel_free(disks);
    }

    std::vector<std::atomic<unsigned>> events_seen_ =
        std::vector<std::atomic<unsigned>>(kWriters * kEach);
    std::array<std::atomic<unsigned>, RTCACHE_DISK_SLOTS> disks_seen_{};
    std::atomic<unsigned> disks_told_{0};

  private:
    static void record(bool held, uint32_t type, uint32_t event, uint32_t key) {
        if (held) {
            EXPECT_EQ(rtcache_SetDelayedCachedEvent(kEid, type, event, key), 0u);
            return;
        }
        auto* data =
            type == kDisk ? nullptr : static_cast<EventData*>(vexel_alloc(sizeof(EventData)));
        EXPECT_EQ(rtcache_SetCachedEvent_roll_up(kEid, type, event, key, data), 0u);
    }
};

TEST_F(CacheEvents, AreNeitherLostNorDoubledAcrossPurgesAndDrains) {
    ASSERT_EQ(rtcache_Init(), 0u);
    ASSERT_EQ(rtcache_UpdateCachedObject(RTCACHE_REGISTER, kEid, RTCACHE_TYPE_KRON, 0), 0u);
    std::atomic<bool> stop{false};
    std::vector<std::jthread> writers, others;
    others.emplace_back([&] { purge_until(stop); });
    for (int drains = 0; drains < 2; ++drains) {
        others.emplace_back([&] {
            while (!stop.load(std::memory_order_relaxed)) {
                drain();
            }
        });
    }
    for (unsigned writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([this, writer] { write(writer); });
    }
    writers.clear();
    stop = true;
    others.clear();
    drain();  // what was recorded makes room for what is still held back
    EXPECT_EQ((CacheLock{}, rtcache_PurgeDelayedCachedEvents(kEid, 0)), 0u);
    drain();

    for (size_t key = 0; key < events_seen_.size(); ++key) {
        ASSERT_EQ(events_seen_[key].load(), 1u) << "event " << key;
    }
    const unsigned seen = std::accumulate(disks_seen_.begin(), disks_seen_.end(), 0u);
    EXPECT_EQ(seen, disks_told_.load());
    EXPECT_GE(seen, unsigned{RTCACHE_DISK_SLOTS});
    std::printf("figures: R5 operations=%zu\n", events_seen_.size() + seen);
    EXPECT_EQ(rtcache_Destroy(), 0u);
}

}  // namespace
