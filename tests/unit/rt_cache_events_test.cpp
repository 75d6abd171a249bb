#include "tests/support/cache_test.h"

namespace {

constexpr uint32_t kKron = 8, kNvme = 9, kHba = 10;
constexpr uint32_t kDisk = RT_OBJ_PHYSICAL_DISK, kChanged = 3;

class CachedEvents : public CacheTest {
  protected:
    void SetUp() override {
        CacheTest::SetUp();
        add_endpoint(kKron, RTCACHE_TYPE_KRON);
        add_endpoint(kNvme, RTCACHE_TYPE_NVME);
        add_endpoint(kHba, RTCACHE_TYPE_HBA);
        platform.clear_lines();
    }
};

TEST_F(CachedEvents, AListEventIsRecordedDrainedAndGone) {
    EventData* const data = make_event_data("VDR1");
    EXPECT_EQ(rtcache_SetCachedEvent(kNvme, 0, 0x20, 7), 0u);
    EXPECT_EQ(rtcache_SetCachedEvent_roll_up(kNvme, kDisk, 4, 70000, data), 0u);
    const Drained drained{kNvme};
    EXPECT_EQ(drained.text(), "0.32.7 3.4.70000 ");
    EXPECT_EQ(drained.events->events[1].eventData, data);
    EXPECT_EQ(Drained{kNvme}.text(), "");
}

TEST_F(CachedEvents, AChangedDiskIsOneBit) {
    cache_Events_PD_ChObj[0].bitmap[1] = 0xA9;
    EXPECT_EQ(rtcache_SetCachedEvent(kKron, kDisk, kChanged, 10), 0u);
    EXPECT_EQ(rtcache_SetCachedEvent(kKron, kDisk, kChanged, 2047), 0u);
    EventData* const data = make_event_data("PDR3");
    EXPECT_EQ(rtcache_SetCachedEvent_roll_up(kKron, kDisk, kChanged, 2048, data), 0u);
    EXPECT_TRUE(logged(2, "Error: objKey is more than MAX_PHYSICALDEVICESs"));
    cache_StorageEIDInfo.eidCount = 0;  // which the search for the type does not go beyond
    EXPECT_EQ(rtcache_SetCachedEvent_roll_up(kKron, kDisk, kChanged, 75, nullptr), 0u);
    EXPECT_TRUE(logged(1, "<-- error get Storage EID Failrtcache_CopyCachedEvent"));
    platform.clear_lines();
    rtcache_SetCachedEvent_roll_up(kKron, kDisk, kChanged, 75, nullptr);
    EXPECT_TRUE(platform.messages(2).front().ends_with(" 00 80 ")) << "the last disk's byte";
    EXPECT_EQ(Drained{kKron}.text(), "+8 +10 +11 +13 +15 +75 +2047 ");
}

TEST_F(CachedEvents, OfTwoDataOfOneDiskTheSecondStaysAndTheFirstIsFreedByRule) {
    for (const auto& [row_first, row_second, eid, freed] :
         Rows<const char*, const char*, uint32_t, bool>{{"PDR3", "PDR5", kKron, true},
                                                        {"PDR4", "CTL48", kKron, false},
                                                        {"PDR4", "PDR5", kKron, false},
                                                        {"PDR3", "PDR55", kKron, false},
                                                        {"PDR4", "CTL48", kNvme, true}}) {
        EventData* const first = make_event_data(row_first);
        EventData* const second = make_event_data(row_second);
        for (EventData* data : {first, first, second, static_cast<EventData*>(nullptr)}) {
            rtcache_CopyCachedEvent(eid, kDisk, kChanged, 3, data);
        }
        EXPECT_EQ(logged(4, std::string{"event_data_free->messageId:"} + row_first), freed);
        EXPECT_EQ(Drained{eid}.disks->eventData[3], second);
        if (!freed) {
            vexutils::free_event_data(first);
        }
        platform.clear_lines();
    }
}

TEST_F(CachedEvents, ExternalDisksBehindAnHbaAreDropped) {
    wchar_t external[] = L"Disk.Bay.1:Enclosure.External.0-1";
    wchar_t internal[] = L"Disk.Bay.1:Enclosure.Internal.0-1";
    for (const auto& [what, eid, id, key, fqdd, result, recorded] :
         Rows<const char*, uint32_t, uint32_t, uint32_t, wchar_t*, uint32_t, bool>{
             {"external", kHba, 0xFFFFFFFF, 5, external, 0, false},
             {"id set", kHba, 1, 5, external, 0, true},
             {"internal", kHba, 0xFFFFFFFF, 5, internal, 0, true},
             {"no node", kHba, 0xFFFFFFFF, 6, external, 0, true},
             {"beyond the disks", kHba, 0xFFFFFFFF, 2048, external, 2, false},
             {"beyond 16 bits", kHba, 0xFFFFFFFF, 65536 + 5, external, 0, true},
             {"no HBA", kKron, 0xFFFFFFFF, 5, external, 0, true}}) {
        StorageObjectRecord disk{};
        disk.hdr.FQDD = fqdd;
        disk.body.pd.deviceInfoId = id;
        RtCacheEnclosureLink link{{{&disk}}};
        RtCacheDiskNode node{kDisk, &link};
        rtcache_SetCachedObject(3, eid, 5, &node);
        EXPECT_EQ(rtcache_SetCachedEvent(eid, kDisk, 4, key), result);
        rtcache_SetCachedObject(3, eid, 5, nullptr);
        EXPECT_EQ(Drained{eid}.events->eventCount, recorded ? 1u : 0u);
    }
}

TEST_F(CachedEvents, HeldBackEventsJoinTheOthersAtThePurge) {
    EXPECT_EQ(rtcache_SetDelayedCachedEvent(kKron, kDisk, kChanged, 9), 0u);
    EXPECT_EQ(rtcache_SetDelayedCachedEvent(kKron, 0x12345, 0x54321, 0x10000), 0u);
    EXPECT_EQ(rtcache_SetDelayedCachedEvent(kKron, kDisk, kChanged, 2048), 0u);
    rtcache_SetCachedEvent(kKron, kDisk, kChanged, 8);
    rtcache_SetCachedEvent(kKron, 0, 1, 1);
    EXPECT_EQ(rtcache_PurgeDelayedCachedEvents(kKron, -5), 0u);
    EXPECT_EQ(Drained{kKron}.text(), "0.1.1 9029.17185.65536 +8 +9 ");  // of types, 16 bits
    EXPECT_EQ(rtcache_PurgeDelayedCachedEvents(kKron, 0), 0u);
}

TEST_F(CachedEvents, The385thEventStartsTheListAgainAndForgetsTheOthersData) {
    EventData* const dropped = make_event_data("CTL1");
    for (uint32_t i = 0; i < 384 + 380; ++i) {
        rtcache_CopyCachedEvent(kKron, 0, 1, i, i == 5 ? dropped : nullptr);
        EXPECT_TRUE(i != 384 || cache_Events[0].events[5].eventData == nullptr);
    }
    EXPECT_EQ(cache_Events[0].events[5].eventData, nullptr);
    cache_Events[0].events[5].eventData = dropped;
    for (uint32_t i = 0; i < 384 + 10; ++i) {
        rtcache_SetDelayedCachedEvent(kKron, 0, 2, i);  // starts its own list again too
    }
    EXPECT_EQ(rtcache_PurgeDelayedCachedEvents(kKron, 0), 0u);
    EXPECT_EQ(cache_Events[0].events[5].eventData, nullptr);
    EXPECT_EQ(Drained{kKron}.text(), "0.2.388 0.2.389 0.2.390 0.2.391 0.2.392 0.2.393 ");
    vexutils::free_event_data(dropped);
}

class EventReaders : public CacheTest {
  protected:
    static constexpr uint32_t kEid = 9;

    // Records of types 4, 3 and 2, and disks 0 and 2047 changed; ids "a" to "c" and "d0", "d1".
    void SetUp() override {
        CacheTest::SetUp();
        add_endpoint(kEid);
        rtcache_CopyCachedEvent(kEid, 4, 1, 40, make_event_data("a"));
        rtcache_CopyCachedEvent(kEid, 3, 1, 30, make_event_data("b"));
        rtcache_CopyCachedEvent(kEid, 2, 3, 20, make_event_data("c"));
        rtcache_CopyCachedEvent(kEid, 3, 3, 0, make_event_data("d0"));
        rtcache_CopyCachedEvent(kEid, 3, 3, 2047, make_event_data("d1"));
        gRTCache_EventCount = 100;
    }

    // What a list holds; freed.
    static std::string take(RtCacheEventNode*& list) {
        std::string text;
        while (list != nullptr) {
            auto* data = static_cast<EventData*>(list->eventData);
            text += std::to_string(list->objType) + "." + std::to_string(list->eventType) + "." +
                    std::to_string(list->objKey) + (data != nullptr ? data->messageId : "") + " ";
            vexutils::free_event_data(data);
            vexel_free(std::exchange(list, list->next));
        }
        return text;
    }
    RtCacheEventNode* list = nullptr;
};

TEST_F(EventReaders, DrainedRowsBecomeAListLastFirst) {
    RtCacheEventRow* events = nullptr;
    RtCacheDiskChangeRow* disks = nullptr;
    EXPECT_EQ(rtcache_GetCachedEvents(kEid, nullptr, &disks), 2u);
    EXPECT_EQ(rtcache_GetCachedEvents(kEid, &events, nullptr), 2u);
    ASSERT_EQ(rtcache_GetCachedEvents(kEid, &events, &disks), 0u);
    EXPECT_EQ(rtcache_ConvertCacheToEvent(events, disks, &list), 0u);
    EXPECT_EQ(gRTCache_EventCount, 105u);
    *events = {1, {{6, 1, 60, nullptr}}};
    std::ranges::fill(disks->bitmap, uint8_t{0});
    EXPECT_EQ(rtcache_ConvertCacheToEvent(events, disks, &list), 0u);
    EXPECT_EQ(take(list), "6.1.60 3.3.2047d1 3.3.0d0 2.3.20c 3.1.30b 4.1.40a ")
        << "in front of the list there is";
    vexel_free(events);
    vexel_free(disks);
}

TEST_F(EventReaders, EventsOfOneTypeAreTakenOut) {
    EXPECT_EQ(rtcache_GetEventsByObjType(kEid, 3, &list), 0u);
    EXPECT_EQ(take(list), "3.3.2047d1 3.3.0d0 3.1.30b ") << "records and bits";
    EXPECT_EQ(rtcache_GetEventsByObjType(kEid, 4, &list), 0u);
    EXPECT_EQ(take(list), "4.1.40a ");
    rtcache_CopyCachedEvent(kEid, 3, 3, 7, make_event_data("d2"));
    cache_Events_PD_ChObj[0].bitmap[0] = 0;
    EXPECT_EQ(rtcache_GetEventsByObjType(kEid, 3, &list), 0u);
    EXPECT_EQ(list, nullptr);
    const Drained rest{kEid};
    EXPECT_EQ(rest.text(), "2.3.20 ");
    EXPECT_EQ(rest.disks->eventData[2047], nullptr) << "taken with its bit";
    EXPECT_NE(rest.disks->eventData[7], nullptr) << "left, since there was none";
}

}  // namespace
