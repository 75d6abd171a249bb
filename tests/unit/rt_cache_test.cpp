#include "tests/support/cache_test.h"

namespace {

class RuntimeCache : public CacheTest {};

TEST_F(RuntimeCache, StartsAfreshAtEveryInit) {
    add_endpoint(8);
    EXPECT_EQ(rtcache_SetID(3, 77), 0u);
    uint8_t value = 0;
    EXPECT_EQ(rtcache_GetID(3, &value), 0u);
    EXPECT_EQ(value, 77);
    ASSERT_EQ(rtcache_Init(), 0u);
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 0u);
    EXPECT_EQ(sIDToValueMap[3], 0);
}

TEST_F(RuntimeCache, BoundsStayWithinTheArraysWhateverTheLimitsSay) {
    max_adapters = 300;
    max_physicaldevices = 5000;
    ASSERT_EQ(rtcache_Init(), 0u);
    add_endpoint(8);
    uint8_t eid = 9;
    max_logicaldevices = 255;
    EXPECT_EQ(rtcache_SetCachedObject(3, 8, 2048, nullptr), 2u);
    EXPECT_EQ(rtcache_SetCachedObject(4, 8, 254, nullptr), 2u);
    EXPECT_EQ(rtcache_SetCachedObject(1, 8, 255, &eid), 2u);
    EXPECT_EQ(rtcache_SetCachedObject(1, 8, 254, &eid), 0u);
    EXPECT_EQ(rtcache_SetCachedObject(1, 8, 253, &eid), 0u);
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 255u) << "up to the highest that was stored";
    EXPECT_EQ(GetIndexFromEID(9), 253u);
    void* object = nullptr;
    EXPECT_EQ(rtcache_GetCachedObject(1, 8, 255, &object), 2u);
    EXPECT_EQ(rtcache_GetCachedObject(1, 8, 254, &object), 0u);
    EXPECT_EQ(object, &cache_StorageEIDInfo.storageEID[254]);
    max_adapters = 253;
    EXPECT_EQ(GetIndexFromEID(9), 255u);
}

TEST_F(RuntimeCache, RegistrationAppendsAndReusesHoles) {
    add_endpoint(8);
    EXPECT_EQ(add_endpoint(9), 0u);
    add_endpoint(10);
    EXPECT_EQ(rtcache_UpdateCachedObject(2, 9, 7, 0), 0u);  // another type: not this endpoint
    EXPECT_EQ(GetIndexFromEID(9), 1u);
    EXPECT_EQ(rtcache_UpdateCachedObject(0, 9, RTCACHE_TYPE_KRON, 0), 0u);
    EXPECT_EQ(GetIndexFromEID(9), 255u);
    EXPECT_EQ(cache_StorageEIDInfo.eidInfo[1].eidType, 0);

    EXPECT_EQ(rtcache_UpdateCachedObject(RTCACHE_REGISTER, 11, 10, 6), 0u);
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 3u);
    EXPECT_EQ(cache_StorageEIDInfo.eidInfo[1].modularId, 6);
}

TEST_F(RuntimeCache, AFullTableAndEidsThatAreNoneAreRefused) {
    max_adapters = 2;
    cache_StorageEIDInfo.storageEID[0] = 20;  // the table may run ahead of its count
    cache_StorageEIDInfo.storageEID[1] = 21;
    for (const auto& [eid, result] :
         Rows<uint32_t, uint32_t>{{255, 2}, {256 + 8, 2}, {254, 0}, {8, 0}, {9, 2}}) {
        EXPECT_EQ(add_endpoint(eid), result);
    }
    EXPECT_EQ(GetIndexFromEID(254), 0u);
    max_adapters = 1;
    EXPECT_EQ(add_endpoint(7), 2u) << "the count is beyond the limit";
    cache_StorageEIDInfo.eidCount = 300;
    EXPECT_EQ(add_endpoint(7), 2u) << "and the positions beyond it are not looked at";
    max_adapters = 0;
    EXPECT_EQ(rtcache_UpdateCachedObject(0, 254, RTCACHE_TYPE_KRON, 0), 0u);
    EXPECT_EQ(cache_StorageEIDInfo.storageEID[0], 254) << "removed from none";
}

TEST_F(RuntimeCache, APositionThatIsTakenMeanwhileIsNoEndpoint) {
    add_endpoint(8);
    cache_StorageEIDInfo.storageEID[0] = RTCACHE_EID_FREE;
    platform.on_line = [this] {
        if (logged(4, "Found index. Assign cache_StorageEIDInfo.storageEID[0] = 9 ")) {
            cache_StorageEIDInfo.storageEID[0] = 77;
        }
    };
    EXPECT_EQ(add_endpoint(9), 0u);
    platform.on_line = nullptr;
    EXPECT_TRUE(logged(1, "DEFECT. Needs debugging. VEXEL can misbehave. Wrong index 0"));
    EXPECT_EQ(GetIndexFromEID(9), 255u);
}

TEST_F(RuntimeCache, NoRowsNeedNoMemoryButForTheirTables) {
    max_adapters = 0;
    for (int n = 1; n <= 8; ++n) {
        const AllocationScope scope;
        platform.fail(Place::Allocation, n);
        EXPECT_EQ(rtcache_Init(), n <= 6 ? 0u : 3u);
        EXPECT_EQ(add_endpoint(8), n <= 6 ? 2u : 3u);
    }
}

// Look-ups stop at the count, except GetIndexFromEID; with an EID registered twice, some take the
// first position, some the last, some both.
TEST_F(RuntimeCache, AttributesOfAnEidWithTwoPositions) {
    add_endpoint(8, 1);
    add_endpoint(9, 7);
    add_endpoint(8, 10);
    cache_StorageEIDInfo.storageEID[5] = 30;
    EXPECT_EQ(rtcache_SetStorageEIDStatus(8, 0xABCD), 0u);
    EXPECT_EQ(rtcache_SetStorageEIDType(8, 12), 0u);
    EXPECT_EQ(rtcache_SetModularId(8, 3), 0u);

    StorageEIDAttr last{}, first{};
    uint8_t type = 0, modular_id = 0;
    EXPECT_EQ(rtcache_GetStorageEIDStatus(8, &last), 0u);
    EXPECT_EQ(memcmp(&last, "\xCD\xAB\x0A\x00", 4), 0);
    EXPECT_EQ(rtcache_GetStorageEIDStatusNoLock(8, &first), 0u);
    EXPECT_EQ(memcmp(&first, "\xCD\xAB\x0C\x03", 4), 0);
    EXPECT_EQ(rtcache_GetStorageEIDType(8, &type), 0u);
    EXPECT_EQ(type, 12);
    EXPECT_EQ(rtcache_GetModularIdNoLock(8, &modular_id), 0u);
    EXPECT_EQ(modular_id, 3);
    EXPECT_EQ(GetIndexFromEID(30), 5u);
    EXPECT_EQ(rtcache_GetStorageEIDTypeNoLock(30, &type), 1u);
}

TEST_F(RuntimeCache, EveryOperationKnowsWhatIsNoEndpoint) {
    static StorageEIDAttr attributes;
    static uint8_t byte;
    static RtCacheEventRow* events;
    static RtCacheDiskChangeRow* disks;
    static RtCacheEventNode* list;
    static void* object;
    static wchar_t* text;
    add_endpoint(8);
    const StorageEIDAttr before = cache_StorageEIDInfo.eidInfo[0];
    // results: for an EID that nobody has, the free marker, 256 more than an EID
    for (const auto& [results, calls] :
         Rows<std::vector<uint32_t>, std::vector<uint32_t (*)(uint32_t)>>{
             {{255, 255, 255}, {[](auto e) { return uint32_t{GetIndexFromEID(e)}; }}},
             {{0, 0, 0},
              {[](auto e) { return rtcache_GetStorageEIDStatus(e, &attributes); },
               [](auto e) { return rtcache_SetStorageEIDStatus(e, 1); },
               [](auto e) { return rtcache_SetStorageEIDStatusNoLock(e, 1); },
               [](auto e) { return rtcache_GetStorageEIDType(e, &byte); },
               [](auto e) { return rtcache_SetStorageEIDType(e, 1); },
               [](auto e) { return rtcache_SetModularId(e, 1); },
               [](auto e) { return uint32_t{rtcache_GetEnclosureFQDD(e, 1, &text)}; }}},
             {{1, 1, 1},
              {[](auto e) { return rtcache_GetStorageEIDStatusNoLock(e, &attributes); },
               [](auto e) { return rtcache_GetStorageEIDTypeNoLock(e, &byte); },
               [](auto e) { return rtcache_GetModularIdNoLock(e, &byte); },
               [](auto e) { return rtcache_SetCachedEvent_roll_up(e, 0, 1, 1, nullptr); },
               [](auto e) { return rtcache_GetCachedEvents(e, &events, &disks); },
               [](auto e) { return rtcache_GetEventsByObjType(e, 0, &list); },
               [](auto e) { return uint32_t{rtcache_GetAdapterFQDD(e) == nullptr}; },
               [](auto e) { return uint32_t{rtcache_GetBatteryFQDD(e) == nullptr}; }}},
             {{1, 2, 2},
              {[](auto e) { return rtcache_GetCachedObject(3, e, 1, &object); },
               [](auto e) { return rtcache_SetCachedObject(3, e, 1, nullptr); },
               [](auto e) { return rtcache_FreeObjectLevel(e, 3); },
               [](auto e) { return rtcache_SetCachedEvent(e, 0, 1, 1); },
               [](auto e) { return rtcache_SetDelayedCachedEvent(e, 0, 1, 1); },
               [](auto e) { return rtcache_PurgeDelayedCachedEvents(e, 0); }}}}) {
        for (const auto call : calls) {
            EXPECT_EQ((std::vector{call(40), call(255), call(256 + 8)}), results) << call;
        }
    }
    EXPECT_EQ(memcmp(cache_StorageEIDInfo.eidInfo, &before, sizeof(before)), 0);
}

TEST_F(RuntimeCache, AFailureLeavesOutputsAloneButOne) {
    StorageEIDAttr attributes{{1, 2}, 3, 4};
    uint8_t byte = 0xEE;
    rtcache_GetStorageEIDStatus(9, &attributes);
    rtcache_GetStorageEIDStatusNoLock(9, &attributes);
    EXPECT_EQ(attributes.modularId, 4);
    rtcache_GetStorageEIDType(9, &byte);
    rtcache_GetStorageEIDTypeNoLock(9, &byte);
    EXPECT_EQ(byte, 0xEE);
    rtcache_GetModularIdNoLock(9, &byte);
    EXPECT_EQ(byte, 0);
    rtcache_Destroy();
    void* object = nullptr;
    EXPECT_EQ(rtcache_SetCachedObject(RTCACHE_KEY_CONTROLLER, 8, 0, &byte), 1u);
    EXPECT_EQ(rtcache_GetCachedObject(RTCACHE_KEY_CONTROLLER, 8, 0, &object), 1u);
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 3u) << "the result of a failed lock reads as a count";
}

class CachedObjects : public CacheTest {};

TEST_F(CachedObjects, EveryKeyTypeKeepsToItsBounds) {
    add_endpoint(8);
    add_endpoint(9);
    for (const auto& [key_type, bound] : Rows<uint32_t, unsigned>{
             {2, 255}, {3, 2048}, {4, 254}, {5, 6}, {6, 17}, {8, 255}, {0, 0}, {7, 0}}) {
        const auto beyond = static_cast<uint16_t>(bound);
        const auto last = static_cast<uint16_t>(bound - 1);
        int stored = 0;
        void* object = nullptr;
        const uint32_t result = bound == 0 ? 2 : 0;
        EXPECT_EQ(rtcache_SetCachedObject(key_type, 9, last, &stored), result);
        EXPECT_EQ(rtcache_GetCachedObject(key_type, 9, last, &object), result);
        EXPECT_EQ(object, result == 0 ? &stored : nullptr);
        EXPECT_EQ(rtcache_SetCachedObject(key_type, 9, beyond, &stored), 2u);
        EXPECT_EQ(rtcache_GetCachedObject(key_type, 9, beyond, &object), 2u);
        rtcache_SetCachedObject(key_type, 9, last, nullptr);
    }
    max_pciessd_backplanes = 3;  // narrows what can be fetched, not what can be stored
    void* object = &object;
    EXPECT_EQ(rtcache_SetCachedObject(5, 9, 4, nullptr), 0u);
    EXPECT_EQ(rtcache_GetCachedObject(5, 9, 4, &object), 2u);
    EXPECT_EQ(rtcache_GetCachedObject(5, 9, 3, &object), 0u);
    EXPECT_EQ(object, nullptr) << "an empty slot is a success";
}

}  // namespace
