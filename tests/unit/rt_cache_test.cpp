#include "rt_cache.h"

#include "tests/support/cache_test.h"

namespace {

using fake::Place;

class RuntimeCache : public CacheTest {};

TEST_F(RuntimeCache, StartsEmptyWithTheDefaultSizes) {
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 0u);
    StorageEIDTable table{};
    ASSERT_EQ(rtcache_GetStorageEIDs(&table), 0u);
    EXPECT_EQ(table.storageEID, cache_StorageEIDInfo.storageEID);
    EXPECT_EQ(table.eidInfo, cache_StorageEIDInfo.eidInfo);
    for (uint32_t i = 0; i < 108; ++i) {
        EXPECT_EQ(table.storageEID[i], RTCACHE_EID_FREE) << i;
    }
    EXPECT_EQ(cache_PDs[107][2047], nullptr);
    EXPECT_EQ(cache_VDs[107][253], nullptr);
    EXPECT_EQ(cache_Events_PD_ChObj_delayed[107].bitmap[511], 0);
    EXPECT_EQ(max_enclosures_attached_to_kron, 20u);
    EXPECT_EQ(max_pciessds, 104u);
    EXPECT_EQ(backplane_drive_thermalpoll_interval, 10u);
    EXPECT_EQ(insight_drive_thermalpoll_interval, 60u);
}

TEST_F(RuntimeCache, InitAndDestroyLogTheirSteps) {
    rtcache_Destroy();
    EXPECT_EQ(logged_lines(), (Lines{"4 --> ", "4 <-- "}));
    rtcache_Init();
    EXPECT_EQ(logged_lines(), (Lines{"4 --> ", "4 --> R2X section ", "4 <-- "}));
}

TEST_F(RuntimeCache, SecondInitStartsAfresh) {
    add_endpoint(8);
    EXPECT_EQ(rtcache_SetID(3, 77), 0u);
    ASSERT_EQ(rtcache_Init(), 0u);
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 0u);
    EXPECT_EQ(GetIndexFromEID(8), 255u);
    uint8_t value = 1;
    EXPECT_EQ(rtcache_GetID(3, &value), 0u);
    EXPECT_EQ(value, 0);
}

void expect_no_cache() {
    StorageEIDTable table{};
    StorageEIDAttr attributes{};
    uint8_t byte = 0;
    void* object = nullptr;
    EXPECT_EQ(rtcache_GetLock(), 3u);
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 3u);
    EXPECT_EQ(rtcache_GetStorageEIDs(&table), 3u);
    EXPECT_EQ(rtcache_GetStorageEIDStatus(8, &attributes), 3u);
    EXPECT_EQ(rtcache_SetStorageEIDStatus(8, 1), 3u);
    EXPECT_EQ(rtcache_GetStorageEIDType(8, &byte), 3u);
    EXPECT_EQ(rtcache_SetStorageEIDType(8, 1), 3u);
    EXPECT_EQ(rtcache_SetModularId(8, 1), 3u);
    EXPECT_EQ(rtcache_UpdateCachedObject(RTCACHE_REGISTER, 8, 1, 0), 3u);
    EXPECT_EQ(rtcache_GetStorageEIDStatusNoLock(8, &attributes), 1u);
    EXPECT_EQ(rtcache_SetStorageEIDStatusNoLock(8, 1), 0u);
    EXPECT_EQ(rtcache_GetStorageEIDTypeNoLock(8, &byte), 1u);
    EXPECT_EQ(rtcache_GetModularIdNoLock(8, &byte), 1u);
    EXPECT_EQ(GetIndexFromEID(8), 255u);
    for (const uint32_t key_type : {1u, 2u, 3u, 4u, 5u, 6u, 8u}) {
        EXPECT_EQ(rtcache_SetCachedObject(key_type, 8, 0, &byte), 1u) << key_type;
        EXPECT_EQ(rtcache_GetCachedObject(key_type, 8, 0, &object), 1u) << key_type;
    }
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(cache_AllEIDs[0], nullptr);
}

TEST_F(RuntimeCache, WithoutACacheNothingIsFoundOrTouched) {
    rtcache_Destroy();
    expect_no_cache();
    platform.clear_lines();
    rtcache_FreeMem();
    EXPECT_EQ(logged_lines(), Lines{"1 <-- err mutex failrtcache_FreeMem"});
}

TEST_F(RuntimeCache, AFailedInitKeepsItsArraysUntilTheNextOne) {
    int n = 1;
    for (;; ++n) {
        rtcache_Destroy();
        platform.fail(Place::Allocation, n);
        const fake::AllocationScope scope;
        const uint32_t result = rtcache_Init();
        if (!platform.fault_fired(Place::Allocation)) {
            EXPECT_EQ(result, 0u);
            break;
        }
        EXPECT_EQ(result, 3u) << n;
        EXPECT_EQ(cache_Events == nullptr, n == 3) << n;
        expect_no_cache();
        platform.no_faults();
        EXPECT_EQ(rtcache_Init(), 0u) << n;
        EXPECT_EQ(rtcache_GetStorageEIDCount(), 0u);
    }
    EXPECT_EQ(n, 11);  // six arrays, two tables of two blocks
}

TEST_F(RuntimeCache, AFailedInitIsReleasedByDestroyToo) {
    rtcache_Destroy();
    platform.fail(Place::Allocation, 5);
    {
        const fake::AllocationScope scope;
        EXPECT_EQ(rtcache_Init(), 3u);
    }
    EXPECT_NE(cache_Events, nullptr);
    EXPECT_EQ(rtcache_Destroy(), 0u);
    EXPECT_EQ(cache_Events, nullptr);
}

TEST_F(RuntimeCache, AFailedLockCreationIsReportedAndRepairedByTheNextInit) {
    rtcache_Destroy();
    platform.clear_lines();
    platform.fail(Place::MutexCreate, 1);
    EXPECT_EQ(rtcache_Init(), 1u);
    EXPECT_TRUE(logged(1, "<-- rtcache_Init failed to create mutex"));
    expect_no_cache();
    platform.clear_lines();
    platform.fail(Place::MutexCreate, 2);  // the lock of the KRON states
    EXPECT_EQ(rtcache_Init(), 1u);
    EXPECT_FALSE(logged(4, "<-- "));
    EXPECT_EQ(rtcache_Init(), 0u);
}

TEST_F(RuntimeCache, DestroyWithTheLockRefusedFreesNothing) {
    add_endpoint(8);
    platform.clear_lines();
    platform.fail(Place::Lock);
    EXPECT_EQ(rtcache_Destroy(), 0u);
    EXPECT_EQ(logged_lines(), (Lines{"4 --> ", "1 <-- err mutex failrtcache_FreeMem", "4 <-- "}));
    EXPECT_NE(cache_PDs, nullptr);
    EXPECT_EQ(cache_StorageEIDInfo.eidCount, 0u);
    expect_no_cache();
}

TEST_F(RuntimeCache, BoundsStayWithinTheArraysWhateverTheLimitsSay) {
    rtcache_Destroy();
    max_adapters = 300;
    max_physicaldevices = 5000;
    max_logicaldevices = 0;
    ASSERT_EQ(rtcache_Init(), 0u);
    add_endpoint(8);
    const CacheLock lock;
    EXPECT_EQ(rtcache_SetCachedObject(3, 8, 2048, nullptr), 2u);
    EXPECT_EQ(rtcache_SetCachedObject(3, 8, 2047, nullptr), 0u);
    EXPECT_EQ(rtcache_SetCachedObject(4, 8, 0, nullptr), 2u);
    max_logicaldevices = 254;
    EXPECT_EQ(rtcache_SetCachedObject(4, 8, 0, nullptr), 2u);
    uint8_t eid = 9;
    EXPECT_EQ(rtcache_SetCachedObject(1, 8, 255, &eid), 2u);
    EXPECT_EQ(rtcache_SetCachedObject(1, 8, 254, &eid), 0u);
    EXPECT_EQ(GetIndexFromEID(9), 254u);
    max_adapters = 254;
    EXPECT_EQ(GetIndexFromEID(9), 255u);
}

TEST_F(RuntimeCache, SizesThatOverflowAreRefused) {
    if (sizeof(size_t) > 4) {
        GTEST_SKIP() << "this machine can count these bytes";
    }
    rtcache_Destroy();
    max_logicaldevices = 0x01000000;  // 108 rows of 64 MB
    EXPECT_EQ(rtcache_Init(), 3u);
}

TEST_F(RuntimeCache, IdMapHoldsSixteenBytes) {
    uint8_t value = 0xEE;
    EXPECT_EQ(rtcache_SetID(15, 0x1FE), 0u);
    EXPECT_EQ(rtcache_SetID(16, 1), 1u);
    EXPECT_EQ(rtcache_GetID(16, &value), 1u);
    EXPECT_EQ(rtcache_GetID(15, nullptr), 1u);
    EXPECT_EQ(value, 0xEE);
    EXPECT_EQ(rtcache_GetID(15, &value), 0u);
    EXPECT_EQ(value, 0xFE);
}

TEST_F(RuntimeCache, RegistrationAppendsAndReusesHoles) {
    for (const uint32_t eid : {8u, 9u, 10u}) {
        EXPECT_EQ(rtcache_UpdateCachedObject(RTCACHE_REGISTER, eid, 1, 5), 0u);
        EXPECT_EQ(GetIndexFromEID(eid), eid - 8);
    }
    EXPECT_EQ(logged_lines(),
              (Lines{"5 --> enter with EID:8",
                     "4 Found index. Assign cache_StorageEIDInfo.storageEID[0] = 8 ",
                     "4 New index. Assign cache_StorageEIDInfo.storageEID[0] = 8 ",
                     "4 <-- exit with 0", "5 --> enter with EID:9",
                     "4 Found index. Assign cache_StorageEIDInfo.storageEID[1] = 9 ",
                     "4 New index. Assign cache_StorageEIDInfo.storageEID[1] = 9 ",
                     "4 <-- exit with 0", "5 --> enter with EID:10",
                     "4 Found index. Assign cache_StorageEIDInfo.storageEID[2] = 10 ",
                     "4 New index. Assign cache_StorageEIDInfo.storageEID[2] = 10 ",
                     "4 <-- exit with 0"}));

    rtcache_SetStorageEIDStatus(9, 0x1234);
    platform.clear_lines();
    EXPECT_EQ(rtcache_UpdateCachedObject(2, 9, 7, 0), 0u);  // another type: not this endpoint
    EXPECT_EQ(rtcache_UpdateCachedObject(0, 9, 1, 0), 0u);
    EXPECT_EQ(logged_lines(),
              (Lines{"5 --> enter with EID:9", "4 <-- exit with 0", "5 --> enter with EID:9",
                     "1 Marking cache_StorageEIDInfo.storageEID[1] = 9 as INVALID",
                     "4 <-- exit with 0"}));
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 3u);
    EXPECT_EQ(GetIndexFromEID(9), 255u);
    const StorageEIDAttr hole = cache_StorageEIDInfo.eidInfo[1];
    EXPECT_EQ(hole.status[0] + hole.status[1] + hole.eidType + hole.modularId, 0);

    EXPECT_EQ(rtcache_UpdateCachedObject(RTCACHE_REGISTER, 11, 10, 6), 0u);
    EXPECT_EQ(logged_lines(),
              (Lines{"5 --> enter with EID:11",
                     "4 Found index. Assign cache_StorageEIDInfo.storageEID[1] = 11 ",
                     "4 Updated cache_StorageEIDInfo.storageEID[1] = 11 ", "4 <-- exit with 0"}));
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 3u);
    EXPECT_EQ(GetIndexFromEID(11), 1u);
    EXPECT_EQ(cache_StorageEIDInfo.eidInfo[1].modularId, 6);
}

TEST_F(RuntimeCache, AFullTableAndEidsThatAreNoneAreRefused) {
    max_adapters = 2;
    EXPECT_EQ(add_endpoint(254), 0u);
    EXPECT_EQ(add_endpoint(8), 0u);
    platform.clear_lines();
    EXPECT_EQ(add_endpoint(9), 2u);
    EXPECT_EQ(logged_lines(), (Lines{"5 --> enter with EID:9", "4 <-- exit with 2"}));
    max_adapters = 108;
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 2u);
    for (const uint32_t eid : {255u, 256u + 8u}) {
        EXPECT_EQ(add_endpoint(eid), 2u);
        EXPECT_EQ(rtcache_UpdateCachedObject(0, eid, 0, 0), 2u);
        EXPECT_EQ(GetIndexFromEID(eid), 255u);
    }
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 2u);
}

TEST_F(RuntimeCache, AppendsAtTheCountWhenTheTableRanAheadOfIt) {
    max_adapters = 2;
    cache_StorageEIDInfo.storageEID[0] = 20;
    cache_StorageEIDInfo.storageEID[1] = 21;
    EXPECT_EQ(add_endpoint(9), 0u);
    EXPECT_EQ(cache_StorageEIDInfo.storageEID[0], 9);
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 1u);
}

// Look-ups stop at the count, except GetIndexFromEID; with an EID registered twice, some take the
// first position, some the last, some both.
TEST_F(RuntimeCache, AttributesOfAnEidWithTwoPositions) {
    add_endpoint(8, 1);
    add_endpoint(9, 7);
    add_endpoint(8, 10);
    cache_StorageEIDInfo.storageEID[5] = 30;
    cache_StorageEIDInfo.eidInfo[2].modularId = 4;
    EXPECT_EQ(rtcache_SetStorageEIDStatus(8, 0xABCD), 0u);
    EXPECT_EQ(rtcache_SetStorageEIDType(8, 12), 0u);
    EXPECT_EQ(rtcache_SetModularId(8, 3), 0u);

    StorageEIDAttr attributes{};
    EXPECT_EQ(rtcache_GetStorageEIDStatus(8, &attributes), 0u);
    EXPECT_EQ(attributes.status[0], 0xCD);
    EXPECT_EQ(attributes.status[1], 0xAB);
    EXPECT_EQ(attributes.eidType, 10);
    EXPECT_EQ(attributes.modularId, 4);
    const CacheLock lock;
    EXPECT_EQ(rtcache_GetStorageEIDStatusNoLock(8, &attributes), 0u);
    EXPECT_EQ(attributes.status[1], 0xAB);
    EXPECT_EQ(attributes.eidType, 12);
    EXPECT_EQ(attributes.modularId, 3);
    uint8_t byte = 0;
    EXPECT_EQ(rtcache_GetStorageEIDTypeNoLock(8, &byte), 0u);
    EXPECT_EQ(byte, 12);
    EXPECT_EQ(rtcache_GetModularIdNoLock(8, &byte), 0u);
    EXPECT_EQ(byte, 3);
    EXPECT_EQ(GetIndexFromEID(30), 5u);
    EXPECT_EQ(rtcache_GetStorageEIDTypeNoLock(30, &byte), 1u);
}

TEST_F(RuntimeCache, UnknownEidsReadAsSuccessUnderTheLockAndAsNotFoundWithout) {
    add_endpoint(8);
    for (const uint32_t eid : {9u, 255u, 256u + 8u}) {
        SCOPED_TRACE(eid);
        StorageEIDAttr attributes{{1, 2}, 3, 4};
        uint8_t byte = 0xEE;
        EXPECT_EQ(rtcache_SetStorageEIDStatus(eid, 1), 0u);
        EXPECT_EQ(rtcache_GetStorageEIDStatus(eid, &attributes), 0u);
        EXPECT_EQ(rtcache_GetStorageEIDStatusNoLock(eid, &attributes), 1u);
        EXPECT_EQ(attributes.modularId, 4);
        EXPECT_EQ(rtcache_GetStorageEIDType(eid, &byte), 0u);
        EXPECT_EQ(rtcache_GetStorageEIDTypeNoLock(eid, &byte), 1u);
        EXPECT_EQ(byte, 0xEE);
        EXPECT_EQ(rtcache_GetModularIdNoLock(eid, &byte), 1u);
        EXPECT_EQ(byte, 0);  // the only output that a failure clears
    }
}

TEST_F(RuntimeCache, NullOutputsAndRefusedLocksAreReportedOnce) {
    StorageEIDTable table{};
    StorageEIDAttr attributes{{1, 2}, 3, 4};
    uint8_t byte = 0xEE;
    const struct {
        const char* name;
        std::function<uint32_t(bool null)> call;
        bool locks;
        bool has_output = true;
    } rows[] = {
        {"rtcache_GetLock", [](bool) { return rtcache_GetLock(); }, true, false},
        {"rtcache_GetStorageEIDCount", [](bool) { return rtcache_GetStorageEIDCount(); }, true,
         false},
        {"rtcache_GetStorageEIDs",
         [&](bool null) { return rtcache_GetStorageEIDs(null ? nullptr : &table); }, true},
        {"rtcache_GetStorageEIDStatus",
         [&](bool null) { return rtcache_GetStorageEIDStatus(8, null ? nullptr : &attributes); },
         true},
        {"rtcache_GetStorageEIDStatusNoLock",
         [](bool) { return rtcache_GetStorageEIDStatusNoLock(8, nullptr); }, false},
        {"rtcache_SetStorageEIDStatus", [](bool) { return rtcache_SetStorageEIDStatus(8, 1); },
         true, false},
        {"rtcache_GetStorageEIDType",
         [&](bool null) { return rtcache_GetStorageEIDType(8, null ? nullptr : &byte); }, true},
        {"rtcache_GetStorageEIDTypeNoLock",
         [](bool) { return rtcache_GetStorageEIDTypeNoLock(8, nullptr); }, false},
        {"rtcache_SetStorageEIDType", [](bool) { return rtcache_SetStorageEIDType(8, 1); }, true,
         false},
        {"rtcache_GetModularIdNoLock", [](bool) { return rtcache_GetModularIdNoLock(8, nullptr); },
         false},
        {"rtcache_SetModularId", [](bool) { return rtcache_SetModularId(8, 1); }, true, false},
    };
    add_endpoint(8, 7);
    platform.clear_lines();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        if (row.has_output) {
            EXPECT_EQ(row.call(true), 2u);
            EXPECT_EQ(logged_lines(), Lines{std::string{"2 <-- err null inputs"} + row.name});
        }
        if (row.locks) {
            platform.fail(Place::Lock);
            EXPECT_EQ(row.call(false), 3u);
            EXPECT_EQ(logged_lines(), Lines{std::string{"1 <-- err mutex fail"} + row.name});
        }
    }
    EXPECT_EQ(table.storageEID, nullptr);
    EXPECT_EQ(attributes.modularId, 4);
    EXPECT_EQ(byte, 0xEE);
    EXPECT_EQ(cache_StorageEIDInfo.eidInfo[0].eidType, 7);
}

}  // namespace
