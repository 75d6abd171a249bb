#include "tests/support/cache_test.h"

namespace {

class RuntimeCache : public CacheTest {};

TEST_F(RuntimeCache, StartsAfreshAtEveryInit) {
    add_endpoint(8);
    rtcache_SetID(3, 77);
    platform.clear_lines();
    ASSERT_EQ(rtcache_Init(), 0u);
    EXPECT_EQ(logged_lines(),
              (Lines{"4 --> ", "4 --> ", "4 Freeing PCIeSSD extenders", "4 Freeing PCIeSSD BPs",
                     "4 <-- ", "4 --> R2X section ", "4 <-- "}));
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 0u);
    EXPECT_EQ(GetIndexFromEID(8), 255u);
    EXPECT_EQ(sIDToValueMap[3], 0);
    EXPECT_EQ(cache_StorageEIDInfo.storageEID[107], RTCACHE_EID_FREE);
    EXPECT_EQ(cache_PDs[107][2047], nullptr);
    EXPECT_EQ(cache_VDs[107][253], nullptr);
}

// The operations that take the lock.
StorageEIDTable given_table{};
StorageEIDAttr given{};
uint8_t given_byte = 0;
const std::pair<const char*, uint32_t (*)()> kLocked[] = {
    {"GetLock", rtcache_GetLock},
    {"GetStorageEIDCount", rtcache_GetStorageEIDCount},
    {"GetStorageEIDs", [] { return rtcache_GetStorageEIDs(&given_table); }},
    {"GetStorageEIDStatus", [] { return rtcache_GetStorageEIDStatus(8, &given); }},
    {"SetStorageEIDStatus", [] { return rtcache_SetStorageEIDStatus(8, 1); }},
    {"GetStorageEIDType", [] { return rtcache_GetStorageEIDType(8, &given_byte); }},
    {"SetStorageEIDType", [] { return rtcache_SetStorageEIDType(8, 1); }},
    {"SetModularId", [] { return rtcache_SetModularId(8, 1); }},
    {"UpdateCachedObject", [] { return rtcache_UpdateCachedObject(RTCACHE_REGISTER, 9, 1, 0); }}};

void expect_no_cache() {
    for (const auto& [name, call] : kLocked) {
        EXPECT_EQ(call(), 3u) << name;
    }
    EXPECT_EQ(given_table.storageEID, nullptr);
    EXPECT_EQ(given.eidType + given_byte, 0);
    EXPECT_EQ(rtcache_SetStorageEIDStatusNoLock(8, 1), 0u);
    EXPECT_EQ(rtcache_GetStorageEIDStatusNoLock(8, &given), 1u);
    EXPECT_EQ(rtcache_GetStorageEIDTypeNoLock(8, &given_byte), 1u);
    EXPECT_EQ(rtcache_GetModularIdNoLock(8, &given_byte), 1u);
    EXPECT_EQ(GetIndexFromEID(8), 255u);
    void* object = nullptr;
    for (const uint32_t key_type : {1u, 2u, 3u, 4u, 5u, 6u, 8u}) {
        EXPECT_EQ(rtcache_SetCachedObject(key_type, 8, 0, &given_byte), 1u) << key_type;
        EXPECT_EQ(rtcache_GetCachedObject(key_type, 8, 0, &object), 1u) << key_type;
    }
}

TEST_F(RuntimeCache, WithoutACacheNothingIsFoundOrTouched) {
    rtcache_Destroy();
    expect_no_cache();
    platform.clear_lines();
    rtcache_FreeMem();
    platform.fail(Place::MutexCreate, 1);
    EXPECT_EQ(rtcache_Init(), 1u);
    EXPECT_EQ(logged_lines(),
              (Lines{"1 <-- err mutex failrtcache_FreeMem", "4 --> ", "4 --> R2X section ",
                     "1 <-- rtcache_Init failed to create mutex"}));
    expect_no_cache();
    platform.fail(Place::MutexCreate, 2);  // the lock of the KRON states
    EXPECT_EQ(rtcache_Init(), 1u);
    EXPECT_EQ(logged_lines().back(), "4 --> R2X section ");
    EXPECT_EQ(rtcache_Init(), 0u) << "repairs it";
}

TEST_F(RuntimeCache, AFailedInitKeepsItsArraysUntilTheNextOneOrDestroy) {
    for (int n = 1; n <= 10; ++n) {  // six arrays, two tables of two blocks
        rtcache_Destroy();
        platform.fail(Place::Allocation, n);
        const AllocationScope scope;
        EXPECT_EQ(rtcache_Init(), 3u);
        EXPECT_EQ(cache_Events == nullptr, n == 3) << n;
        expect_no_cache();
        EXPECT_TRUE(n % 2 == 0 || rtcache_Init() == 0) << n;
    }
}

TEST_F(RuntimeCache, DestroyWithTheLockRefusedFreesNothing) {
    platform.fail(Place::Lock);
    EXPECT_EQ(rtcache_Destroy(), 0u);
    EXPECT_EQ(logged_lines(), (Lines{"4 --> ", "1 <-- err mutex failrtcache_FreeMem", "4 <-- "}));
    EXPECT_NE(cache_PDs, nullptr);
    expect_no_cache();
}

TEST_F(RuntimeCache, BoundsStayWithinTheArraysWhateverTheLimitsSay) {
    max_adapters = 300;
    max_physicaldevices = 5000;
    max_logicaldevices = 0;
    ASSERT_EQ(rtcache_Init(), 0u);
    add_endpoint(8);
    uint8_t eid = 9;
    max_logicaldevices = 254;
    EXPECT_EQ(rtcache_SetCachedObject(3, 8, 2048, nullptr), 2u);
    EXPECT_EQ(rtcache_SetCachedObject(3, 8, 2047, nullptr), 0u);
    EXPECT_EQ(rtcache_SetCachedObject(4, 8, 0, nullptr), 2u);
    EXPECT_EQ(rtcache_SetCachedObject(1, 8, 255, &eid), 2u);
    EXPECT_EQ(rtcache_SetCachedObject(1, 8, 254, &eid), 0u);
    EXPECT_EQ(GetIndexFromEID(9), 254u);
    max_adapters = 254;
    EXPECT_EQ(GetIndexFromEID(9), 255u);
    if (sizeof(size_t) == 4) {
        max_logicaldevices = 0x01000000;  // rows of 64 MB: more than can be counted
        EXPECT_EQ(rtcache_Init(), 3u);
    }
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
    const std::string table = "cache_StorageEIDInfo.storageEID";
    for (const uint32_t eid : {8u, 9u, 10u}) {
        platform.clear_lines();
        EXPECT_EQ(rtcache_UpdateCachedObject(RTCACHE_REGISTER, eid, 1, 5), 0u);
        EXPECT_EQ(GetIndexFromEID(eid), eid - 8);
    }
    EXPECT_EQ(logged_lines(),
              (Lines{"5 --> enter with EID:10", "4 Found index. Assign " + table + "[2] = 10 ",
                     "4 New index. Assign " + table + "[2] = 10 ", "4 <-- exit with 0"}));

    rtcache_SetStorageEIDStatus(9, 0x1234);
    EXPECT_EQ(rtcache_UpdateCachedObject(2, 9, 7, 0), 0u);  // another type: not this endpoint
    EXPECT_EQ(GetIndexFromEID(9), 1u);
    platform.clear_lines();
    EXPECT_EQ(rtcache_UpdateCachedObject(0, 9, 1, 0), 0u);
    EXPECT_EQ(logged_lines(),
              (Lines{"5 --> enter with EID:9", "1 Marking " + table + "[1] = 9 as INVALID",
                     "4 <-- exit with 0"}));
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 3u);
    EXPECT_EQ(GetIndexFromEID(9), 255u);
    const StorageEIDAttr hole = cache_StorageEIDInfo.eidInfo[1];
    EXPECT_EQ(hole.status[0] + hole.status[1] + hole.eidType + hole.modularId, 0);

    EXPECT_EQ(rtcache_UpdateCachedObject(RTCACHE_REGISTER, 11, 10, 6), 0u);
    EXPECT_EQ(logged_lines(),
              (Lines{"5 --> enter with EID:11", "4 Found index. Assign " + table + "[1] = 11 ",
                     "4 Updated " + table + "[1] = 11 ", "4 <-- exit with 0"}));
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 3u);
    EXPECT_EQ(GetIndexFromEID(11), 1u);
    EXPECT_EQ(cache_StorageEIDInfo.eidInfo[1].modularId, 6);
}

TEST_F(RuntimeCache, AFullTableAndEidsThatAreNoneAreRefused) {
    max_adapters = 2;
    cache_StorageEIDInfo.storageEID[0] = 20;  // the table may run ahead of its count
    cache_StorageEIDInfo.storageEID[1] = 21;
    EXPECT_EQ(add_endpoint(254), 0u);
    EXPECT_EQ(add_endpoint(8), 0u);
    EXPECT_EQ(GetIndexFromEID(254), 0u);
    platform.clear_lines();
    EXPECT_EQ(add_endpoint(9), 2u);
    EXPECT_EQ(logged_lines(), (Lines{"5 --> enter with EID:9", "4 <-- exit with 2"}));
    max_adapters = 108;
    for (const uint32_t eid : {255u, 256u + 8u}) {
        EXPECT_EQ(add_endpoint(eid), 2u);
        EXPECT_EQ(rtcache_UpdateCachedObject(0, eid, 0, 0), 2u);
        EXPECT_EQ(GetIndexFromEID(eid), 255u);
    }
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 2u);
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
    EXPECT_EQ(rtcache_GetStorageEIDType(8, &type), 0u);
    EXPECT_EQ(type, 12);
    EXPECT_EQ(rtcache_GetStorageEIDStatusNoLock(8, &first), 0u);
    EXPECT_EQ(rtcache_GetStorageEIDTypeNoLock(9, &type), 0u);
    EXPECT_EQ(rtcache_GetModularIdNoLock(8, &modular_id), 0u);
    EXPECT_EQ(memcmp(&last, "\xCD\xAB\x0A\x00", 4), 0);
    EXPECT_EQ(memcmp(&first, "\xCD\xAB\x0C\x03", 4), 0);
    EXPECT_EQ(type, 7);
    EXPECT_EQ(modular_id, 3);
    EXPECT_EQ(GetIndexFromEID(30), 5u);
    EXPECT_EQ(rtcache_GetStorageEIDTypeNoLock(30, &type), 1u);
}

TEST_F(RuntimeCache, UnknownEidsReadAsSuccessUnderTheLockAndAsNotFoundWithout) {
    add_endpoint(8);
    for (const uint32_t eid : {9u, 255u, 256u + 8u}) {
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
    add_endpoint(8, 7);
    const Rows<std::string, uint32_t (*)()> rows{
        {"GetStorageEIDs", [] { return rtcache_GetStorageEIDs(nullptr); }},
        {"GetStorageEIDStatus", [] { return rtcache_GetStorageEIDStatus(8, nullptr); }},
        {"GetStorageEIDType", [] { return rtcache_GetStorageEIDType(8, nullptr); }},
        {"GetStorageEIDStatusNoLock", [] { return rtcache_GetStorageEIDStatusNoLock(8, nullptr); }},
        {"GetStorageEIDTypeNoLock", [] { return rtcache_GetStorageEIDTypeNoLock(8, nullptr); }},
        {"GetModularIdNoLock", [] { return rtcache_GetModularIdNoLock(8, nullptr); }}};
    for (const auto& [name, call] : rows) {
        platform.clear_lines();
        EXPECT_EQ(call(), 2u);
        EXPECT_EQ(logged_lines(), Lines{"2 <-- err null inputsrtcache_" + name});
    }
    platform.fail(Place::Lock, 1, true);
    for (const auto& [name, call] : kLocked) {
        EXPECT_EQ(call(), 3u);
        EXPECT_EQ(told(1), std::string{"<-- err mutex failrtcache_"} + name + "\n");
    }
    EXPECT_EQ(cache_StorageEIDInfo.eidInfo[0].eidType, 7);
}

}  // namespace
