// Whatever threads may call at the same time, called at the same time, while the backplane service
// calls back. What is looked for are races: the thread sanitizer tells.
#include <filesystem>

#include "platform/linux/shm_admin.h"
#include "rt_cache/rt_cache_nodes.h"
#include "rt_evtq.h"
#include "rt_lclogwrp.h"
#include "rt_shm.h"
#include "rt_sync.h"
#include "tests/support/linux_test.h"
#include "tests/support/objects.h"
#include "tests/threads/quiet_log.h"
#include "vexel.h"

namespace {

constexpr unsigned kThreads = 8;
constexpr unsigned kEach = VEX_THREAD_TEST_EVENTS / 2 / kThreads;
constexpr uint32_t kEid = 8, kOtherEid = 20;

// One call, or some under the lock that they need; n differs from call to call.
using Entry = void (*)(uint32_t n);

template <class Work>
void under_cache_lock(Work work) {
    ASSERT_EQ(rtcache_GetLock(), 0u);
    work();
    SMMutexUnLock(mutexRtCache);
}

template <uint32_t (*Get)(uint8_t*, uint8_t, uint8_t)>
void read_slot(uint32_t n) {
    uint8_t value = 0;
    Get(&value, static_cast<uint8_t>(n % 6), static_cast<uint8_t>(n / 8 % 12));
}

void register_endpoint(uint32_t n) {
    rtcache_UpdateCachedObject(n % 2, kOtherEid + n / 2 % 8, RTCACHE_TYPE_NVME, n % 3);
}

void set_endpoint(uint32_t n) {
    rtcache_SetStorageEIDStatus(kOtherEid + n % 8, n % 4);
    rtcache_SetModularId(kOtherEid + n % 8, n % 4);
    rtcache_SetStorageEIDType(kEid, RTCACHE_TYPE_KRON);
}

void read_endpoints(uint32_t n) {
    StorageEIDTable table;
    rtcache_GetStorageEIDs(&table);
    StorageEIDAttr attributes;
    rtcache_GetStorageEIDStatus(n % 32, &attributes);
    uint8_t type = 0;
    rtcache_GetStorageEIDType(n % 32, &type);
    EXPECT_GE(rtcache_GetStorageEIDCount(), 1u);
}

void store_object(uint32_t n) {
    under_cache_lock([n] {
        const auto key = static_cast<uint16_t>(n % 16);
        void* object = nullptr;
        rtcache_GetCachedObject(RTCACHE_KEY_DISK, kEid, key, &object);
        if (object == nullptr) {
            rtcache_SetCachedObject(RTCACHE_KEY_DISK, kEid, key, make_disk());
        }
    });
}

void free_objects(uint32_t n) {
    if (n % 16 == 0) {
        rtcache_FreeObjectLevel(kEid, RTCACHE_KEY_DISK);
    }
}

void record_event(uint32_t n) {
    under_cache_lock([n] {
        rtcache_SetCachedEvent(kEid, n % 2 != 0 ? RT_OBJ_PHYSICAL_DISK : RT_OBJ_ADAPTER, 3, n % 64);
        rtcache_SetDelayedCachedEvent(kEid, RT_OBJ_ADAPTER, 3, n % 64);
        rtcache_PurgeDelayedCachedEvents(kEid, 0);
    });
}

void drain_events(uint32_t) {
    RtCacheEventRow* events = nullptr;
    RtCacheDiskChangeRow* disks = nullptr;
    rtcache_GetCachedEvents(kEid, &events, &disks);
    vexel_free(events);
    vexel_free(disks);
}

void change_status(uint32_t n) {
    RTSyncGlobalStatus status{};
    ASSERT_EQ(RTSync_LockGlobalStatus(), 0u);
    RTSync_GetGlobalStatus(&status);
    RTSync_SetGlobalStatus(status);
    RTSync_UnLockGlobalStatus();
    n % 2 != 0 ? RTSync_SetGlobalPoll(status) : RTSync_updateGlobalPoll(status);
}

void change_controller_state(uint32_t n) {
    uint8_t value = 0;
    RTSync_SetKronStatus(kEid, static_cast<uint8_t>(n));
    RTSync_GetKronStatus(kEid, &value);
    rtraid_SetKRONInventoryThreadFlag(n % 2);
    rtraid_GetKRONInventoryThreadFlag(&value);
}

void put_event(uint32_t n) {
    EndpointEvent event{};
    event.callbackType = RTRAID_CALLBACK_POWERON;
    event.bufferSize = 1;
    if (n % 4 == 0) {
        ASSERT_EQ(rtraid_EventQueue_Put(&event), 0);
        EndpointEvent* taken = nullptr;  // there is one for each that asks
        while (taken == nullptr) {
            taken = rtraid_EventQueue_Get();
        }
        vexel_free(taken);
    }
    rtraid_EventQueue_GetStatus();
}

void submit(uint32_t n) {
    if (n % 256 == 0) {
        rt_JWLOGCMNSubmitEvent_nonRaid(0, 0, 2, "CTL1");
    }
}

void change_slot(uint32_t n) {
    const auto bay = static_cast<uint8_t>(n % 5), slot = static_cast<uint8_t>(n / 8 % 12);
    rtshm_UpdateNVMeSSDSlotToEID(bay, slot, static_cast<uint8_t>(kOtherEid + n % 8));
    rtshm_UpdateNVMeSSDSlotToVDMEID(bay, slot, static_cast<uint8_t>(n % 200));
    RTSHM_setBpFwVersion(bay, n % 100, 1);
    rtshm_SetNVMeDriveState(bay, slot, 1);
}

void find_slot(uint32_t n) {
    under_cache_lock([n] {
        uint8_t bay = 0, slot = 0;
        RTSHM_readBayIDAndSlotNoFromEID(&bay, &slot, static_cast<int>(kOtherEid + n % 8));
        rtshm_IsDriveBehindKRONfromBPAPIByEID(&bay, static_cast<uint8_t>(kOtherEid + n % 8));
        GetIndexFromEID(kEid);
    });
}

void publish(uint32_t n) {
    if (n % 64 == 0) {
        under_cache_lock([] { RTSHM_UpdateSharedMem(1); });
    }
    uint8_t flags[4];
    RTSHM_ReadSharedThermalPolling(flags);
}

void trace(uint32_t n) {
    vexel_wlog(n, "tag", L"text");
    hexdump("bytes", 5);
    IsvexelLogDisabled();
}

constexpr Entry kEntries[] = {register_endpoint,
                              set_endpoint,
                              read_endpoints,
                              store_object,
                              free_objects,
                              record_event,
                              drain_events,
                              change_status,
                              change_controller_state,
                              put_event,
                              submit,
                              change_slot,
                              find_slot,
                              publish,
                              trace,
                              read_slot<rtshm_getDriveTechFromBpInfo>,
                              read_slot<rtshm_getBusNumFromBpInfo>,
                              read_slot<rtshm_IsDriveBehindKRONfromBPAPI>,
                              read_slot<rtshm_IsDriveConnectedRearBP>};

class EntryPoints : public QuietLog {
  protected:
    // The topology that the service watches, with a slot or without.
    void change_backplane(bool slot) const {
        write_file(topology_ + ".new", std::string{R"({"bays":[{"bayId":1,"technology":"nvme",)"} +
                                           R"("physicalSlots":8,"drives":[)" +
                                           (slot ? R"({"slot":2},)" : "") + "{\"slot\":3}]}]}\n");
        std::filesystem::rename(topology_ + ".new", topology_);
    }

    void SetUp() override {
        environment_.set("VEX_BACKPLANE", "file:" + topology_);
        environment_.set("VEX_EVENT_LOG", folder_ / "events.log");
        environment_.set("VEX_SHM_NAMESPACE", "vexthreads-" + std::to_string(getpid()));
        change_backplane(true);
        EXPECT_EQ(RTSync_Init(), 0u);
        EXPECT_EQ(rtraid_KRONInventoryThreadHandlerMutexInit(), 0u);
        EXPECT_EQ(rtraid_EventQueue_Init(), 0);
        EXPECT_EQ(rtraid_EventQueue_SetStatus(RTRAID_EVTQ_READY), 0);
        EXPECT_EQ(rtcache_Init(), 0u);
        EXPECT_EQ(rtcache_UpdateCachedObject(RTCACHE_REGISTER, kEid, RTCACHE_TYPE_KRON, 0), 0u);
        EXPECT_EQ(rtshm_BpApiInit(), 0u);
        EXPECT_EQ(rtshm_BpApiKronInit(), 0u);
    }

    void TearDown() override {
        rtshm_BpApiExit();
        rtshm_BpApiKronExit();
        rtcache_Destroy();
        rtraid_EventQueue_Destroy();
        rtraid_KRONInventoryThreadHandlerMutexDestroy();
        RTSync_Destroy();
        EXPECT_EQ(vexplatform_shm_remove_all(), 0);
    }

    TempDir folder_;
    Environment environment_;
    std::string topology_ = folder_ / "topology.json";
};

TEST_F(EntryPoints, MayBeCalledFromManyThreadsAtOnce) {
    const char* fixed = getenv("VEX_TEST_SEED");
    const unsigned seed =
        fixed != nullptr ? static_cast<unsigned>(atoi(fixed)) : std::random_device{}();
    std::vector<std::jthread> threads;
    std::atomic<unsigned> running{kThreads};
    for (unsigned thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&running, thread, seed] {
            std::minstd_rand random{seed + thread + 1};
            for (unsigned call = 0; call < kEach; ++call) {
                const auto n = static_cast<uint32_t>(random());
                kEntries[n / 1024 % std::size(kEntries)](n / 32768);
                if (n % 8 == 0) {
                    std::this_thread::yield();
                }
            }
            running.fetch_sub(1, std::memory_order_relaxed);
        });
    }
    unsigned changes = 0;
    for (; running.load(std::memory_order_relaxed) != 0; ++changes) {
        change_backplane(changes % 2 != 0);
        std::this_thread::sleep_for(milliseconds{20});
    }
    threads.clear();
    printf("figures: R5 operations=%u backplane_changes=%u seed=%u\n", kThreads * kEach, changes,
           seed);
}

}  // namespace
