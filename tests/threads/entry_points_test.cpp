// Whatever threads may call at the same time, called at the same time, while the backplane service
// calls back. What is looked for are races: the thread sanitizer tells.
#include "platform/linux/shm_admin.h"
#include "rt_cache/rt_cache_nodes.h"
#include "rt_evtq.h"
#include "rt_lclogwrp.h"
#include "rt_shm.h"
#include "rt_sync.h"
#include "tests/support/objects.h"
#include "tests/threads/quiet_log.h"

namespace {

constexpr unsigned kThreads = 8;
const unsigned kEach = kEvents / 2 / kThreads;
constexpr uint32_t kEid = 8, kOtherEid = 20;

// Calls of one area; n differs from time to time.
void endpoints(uint32_t n) {
    rtcache_UpdateCachedObject(n % 2, kOtherEid + n / 2 % 8, RTCACHE_TYPE_NVME, n % 3);
    rtcache_SetStorageEIDStatus(kOtherEid + n % 8, n % 4);
    rtcache_SetModularId(kOtherEid + n % 8, n % 4);
    rtcache_SetStorageEIDType(kEid, RTCACHE_TYPE_KRON);
    StorageEIDTable table;
    rtcache_GetStorageEIDs(&table);
    StorageEIDAttr attributes;
    rtcache_GetStorageEIDStatus(n % 32, &attributes);
    uint8_t type = 0;
    rtcache_GetStorageEIDType(n % 32, &type);
    EXPECT_GE(rtcache_GetStorageEIDCount(), 1u);
}

void objects(uint32_t n) {
    const auto key = static_cast<uint16_t>(n % 16);
    void* object = nullptr;
    if (const CacheLock lock;
        rtcache_GetCachedObject(RTCACHE_KEY_DISK, kEid, key, &object) == 0 && object == nullptr) {
        rtcache_SetCachedObject(RTCACHE_KEY_DISK, kEid, key, make_disk());
    }
    if (key == 0) {
        rtcache_FreeObjectLevel(kEid, RTCACHE_KEY_DISK);
    }
}

void events(uint32_t n) {
    {
        const CacheLock lock;
        rtcache_SetCachedEvent(kEid, n % 2 != 0 ? RT_OBJ_PHYSICAL_DISK : RT_OBJ_ADAPTER, 3, n % 64);
        rtcache_SetDelayedCachedEvent(kEid, RT_OBJ_ADAPTER, 3, n % 64);
        rtcache_PurgeDelayedCachedEvents(kEid, 0);
    }
    RtCacheEventRow* drained = nullptr;
    RtCacheDiskChangeRow* disks = nullptr;
    rtcache_GetCachedEvents(kEid, &drained, &disks);
    vexel_free(drained);
    vexel_free(disks);
}

void states(uint32_t n) {
    RTSyncGlobalStatus status{};
    ASSERT_EQ(RTSync_LockGlobalStatus(), 0u);
    RTSync_GetGlobalStatus(&status);
    RTSync_SetGlobalStatus(status);
    RTSync_UnLockGlobalStatus();
    n % 2 != 0 ? RTSync_SetGlobalPoll(status) : RTSync_updateGlobalPoll(status);
    uint8_t value = 0;
    RTSync_SetKronStatus(kEid, static_cast<uint8_t>(n));
    RTSync_GetKronStatus(kEid, &value);
    rtraid_SetKRONInventoryThreadFlag(n % 2);
    rtraid_GetKRONInventoryThreadFlag(&value);
}

void messages(uint32_t n) {
    EndpointEvent event{RTRAID_CALLBACK_POWERON, 1, {}};
    ASSERT_EQ(rtraid_EventQueue_Put(&event), 0);
    EndpointEvent* taken = nullptr;  // there is one for each that asks
    while (taken == nullptr) {
        taken = rtraid_EventQueue_Get();
    }
    vexel_free(taken);
    vexel_wlog(n, "tag", L"text");
    hexdump("bytes", 5);
    if (n % 64 == 0) {
        rt_JWLOGCMNSubmitEvent_nonRaid(0, 0, 2, "CTL1");
    }
}

void slots(uint32_t n) {
    const auto bay = static_cast<uint8_t>(n % 5), slot = static_cast<uint8_t>(n / 8 % 12);
    rtshm_UpdateNVMeSSDSlotToEID(bay, slot, static_cast<uint8_t>(kOtherEid + n % 8));
    rtshm_UpdateNVMeSSDSlotToVDMEID(bay, slot, static_cast<uint8_t>(n % 200));
    RTSHM_setBpFwVersion(bay, n % 100, 1);
    rtshm_SetNVMeDriveState(bay, slot, 1);
    uint8_t value = 0, other = 0;
    rtshm_getDriveTechFromBpInfo(&value, bay, slot);
    rtshm_getBusNumFromBpInfo(&value, bay, slot);
    rtshm_IsDriveBehindKRONfromBPAPI(&value, bay, slot);
    rtshm_IsDriveConnectedRearBP(&value, bay, slot);
    const CacheLock lock;
    RTSHM_readBayIDAndSlotNoFromEID(&value, &other, static_cast<int>(kOtherEid + n % 8));
    rtshm_IsDriveBehindKRONfromBPAPIByEID(&value, static_cast<uint8_t>(kOtherEid + n % 8));
    GetIndexFromEID(kEid);
}

void publication(uint32_t n) {
    if (n % 32 == 0) {
        const CacheLock lock;
        RTSHM_UpdateSharedMem(1);
    }
    uint8_t flags[4];
    RTSHM_ReadSharedThermalPolling(flags);
}

constexpr void (*kEntries[])(uint32_t n) = {endpoints, objects, events,     states,
                                            messages,  slots,   publication};

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
