#include "tests/support/cache_test.h"

namespace {

class RuntimeCache : public CacheTest {};

TEST_F(RuntimeCache, StartsAfreshAtEveryInit) {
    add_endpoint(8);
    EXPECT_EQ(rtcache_SetID(3, 77), 0u);
    uint8_t value = 0;
    EXPECT_EQ(rtcache_GetID(3, &value), 0u);
    EXPECT_EQ(value, 77);
    platform.clear_lines();
    ASSERT_EQ(rtcache_Init(), 0u);
    EXPECT_EQ(logged_lines(),
              (Lines{"4 --> ", "4 --> ", "4 Freeing PCIeSSD extenders", "4 Freeing PCIeSSD BPs",
                     "4 <-- ", "4 --> R2X section ", "4 <-- "}));
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
    EXPECT_EQ(rtcache_SetCachedObject(1, 8, 254, nullptr), 2u);
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
    platform.clear_lines();
    EXPECT_EQ(add_endpoint(9), 0u);
    EXPECT_EQ(logged_lines(),
              (Lines{"5 --> enter with EID:9",
                     "4 Found index. Assign cache_StorageEIDInfo.storageEID[1] = 9 ",
                     "4 New index. Assign cache_StorageEIDInfo.storageEID[1] = 9 ",
                     "4 <-- exit with 0"}));
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

TEST_F(RuntimeCache, UnknownEidsReadAsSuccessUnderTheLockAndAsNotFoundWithout) {
    StorageEIDAttr attributes{{1, 2}, 3, 4};
    uint8_t byte = 0xEE;
    EXPECT_EQ(rtcache_GetStorageEIDStatus(9, &attributes), 0u);
    EXPECT_EQ(rtcache_GetStorageEIDStatusNoLock(9, &attributes), 1u);
    EXPECT_EQ(attributes.modularId, 4);
    EXPECT_EQ(rtcache_GetStorageEIDType(9, &byte), 0u);
    EXPECT_EQ(rtcache_GetStorageEIDTypeNoLock(9, &byte), 1u);
    EXPECT_EQ(byte, 0xEE);
    EXPECT_EQ(rtcache_GetModularIdNoLock(9, &byte), 1u);
    EXPECT_EQ(byte, 0) << "the only output that a failure clears";
    rtcache_Destroy();
    EXPECT_EQ(rtcache_SetCachedObject(RTCACHE_KEY_CONTROLLER, 8, 0, &byte), 1u);
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 3u) << "the result of a failed lock reads as a count";

    EXPECT_EQ(rtcache_GetStorageEIDs(nullptr), 2u);
    EXPECT_EQ(rtcache_GetStorageEIDStatus(9, nullptr), 2u);
    EXPECT_EQ(rtcache_GetStorageEIDStatusNoLock(9, nullptr), 2u);
    EXPECT_EQ(rtcache_GetStorageEIDType(9, nullptr), 2u);
    EXPECT_EQ(rtcache_GetStorageEIDTypeNoLock(9, nullptr), 2u);
    EXPECT_EQ(rtcache_GetModularIdNoLock(9, nullptr), 2u);
    EXPECT_EQ(rtcache_SetID(16, 1), 1u);
    EXPECT_EQ(rtcache_GetID(16, &byte), 1u);
    EXPECT_EQ(rtcache_GetID(15, nullptr), 1u);
}

}  // namespace
