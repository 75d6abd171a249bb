#include "rt_cache/rt_cache_bitmap.h"
#include "tests/support/cache_test.h"

namespace {

constexpr uint32_t kKron = 8, kNvme = 9, kHba = 10;
constexpr uint32_t kDisk = RT_OBJ_PHYSICAL_DISK, kChanged = 3;

// Log line of a bitmap that starts with these bytes and is zero behind them.
std::string bitmap_line(const char* which, std::string bytes) {
    while (bytes.size() < 768) {
        bytes += "00 ";
    }
    return std::string{"2 ["} + which + "] _PD_ChObj Bitmap : 0x" + bytes;
}

class CachedEvents : public CacheTest {
  protected:
    void SetUp() override {
        CacheTest::SetUp();
        add_endpoint(kKron, RTCACHE_TYPE_KRON);
        add_endpoint(kNvme, RTCACHE_TYPE_NVME);
        add_endpoint(kHba, RTCACHE_TYPE_HBA);
        platform.clear_lines();
    }

    static bool all_zero(uint32_t row) {
        static const RtCacheEventRow no_events{};
        static const RtCacheDiskChangeRow no_changes{};
        return memcmp(&cache_Events[row], &no_events, sizeof(no_events)) == 0 &&
               memcmp(&cache_Events_PD_ChObj[row], &no_changes, sizeof(no_changes)) == 0;
    }
};

TEST_F(CachedEvents, AListEventIsRecordedDrainedAndGone) {
    EventData* const data = make_event_data("VDR1");
    EXPECT_EQ(rtcache_SetCachedEvent(kNvme, 0, 0x20, 7), 0u);
    EXPECT_EQ(rtcache_SetCachedEvent_roll_up(kNvme, kDisk, 4, 70000, data), 0u);
    EXPECT_EQ(logged_lines(), (Lines{"5 --> entry, EID:9, objType:0x0, eventType:0x20, objKey:7",
                                     bitmap_line("Cache", ""), "4 event_data_npd null",
                                     "4 event_data roll_up not NULL", bitmap_line("Cache", ""),
                                     "4 event_data_npd not null"}));
    const Drained drained{kNvme};
    EXPECT_EQ(logged_lines(), (Lines{"5 --> entry, EID[9]", "5 <-- exit"}));
    EXPECT_EQ(drained.text(), "0.32.7 3.4.70000 ");
    EXPECT_EQ(drained.events->events[1].eventData, data);
    EXPECT_TRUE(all_zero(1));
}

TEST_F(CachedEvents, AChangedDiskIsOneBit) {
    EXPECT_EQ(rtcache_SetCachedEvent(kKron, kDisk, kChanged, 10), 0u);
    EXPECT_EQ(logged_lines(),
              (Lines{"5 --> entry, EID:8, objType:0x3, eventType:0x3, objKey:10",
                     bitmap_line("Cache", ""),
                     "4 Event is for PHYSICALDISK and RAID_MGMT_EVENT_CHANGE_OBJECT",
                     "4 -->CopyCacheEvent: EID=8 u8Type=1", "4 u16Index:[1], u16Shift:[2]",
                     "4 event_data_pd null"}));
    EXPECT_EQ(rtcache_SetCachedEvent(kKron, kDisk, kChanged, 10), 0u);
    EXPECT_EQ(rtcache_SetCachedEvent(kKron, kDisk, kChanged, 2047), 0u);
    max_physicaldevices = 100;
    for (const uint32_t key : {100u, 65536u + 8u}) {  // no slot: no bit, and the data is freed
        EventData* const data = make_event_data("PDR3");
        EXPECT_EQ(rtcache_SetCachedEvent_roll_up(kKron, kDisk, kChanged, key, data), 0u);
    }
    EXPECT_EQ(rtcache_SetCachedEvent(kKron, kDisk, kChanged, 100), 0u);
    EXPECT_EQ(platform.count_logged(4, "event_data_pd null"), 3) << "with no slot too";
    EXPECT_EQ(platform.count_logged(2, "Error: objKey is more than MAX_PHYSICALDEVICESs"), 3);
    EXPECT_EQ(Drained{kKron}.text(), "+10 +2047 ");
}

TEST_F(CachedEvents, The385thEventStartsTheListAgainAndForgetsTheOthersData) {
    EventData* const dropped = make_event_data("CTL1");
    for (uint32_t i = 0; i < 384; ++i) {
        rtcache_CopyCachedEvent(kKron, 0, 1, i, i == 5 ? dropped : nullptr);
    }
    EXPECT_FALSE(logged(2, "exceeded the RTCACHE_EVENTCACHE_DEPTH"));
    for (const uint32_t count : {384u, 0xFFFFFFFFu}) {  // the second one written from outside
        cache_Events[0].eventCount = count;
        rtcache_CopyCachedEvent(kKron, 0, 1, count, nullptr);
        EXPECT_TRUE(logged(2, "exceeded the RTCACHE_EVENTCACHE_DEPTH"));
        EXPECT_EQ(cache_Events[0].eventCount, 1u);
        EXPECT_EQ(cache_Events[0].events[0].objKey, count);
        EXPECT_EQ(cache_Events[0].events[5].eventData, nullptr);
    }
    vexutils::free_event_data(dropped);
}

TEST_F(CachedEvents, OfTwoDataOfOneDiskTheSecondStaysAndTheFirstIsFreedByRule) {
    const char* conflict[] = {
        "event_data this should not happen unless PDR5 after PDR3 OR CTL48 for first drive which "
        "overwrites PDR4",
        "event_data exsts already. This should not happen. overwrite with new event"};
    for (const auto& [eid, row_first, row_second, freed] :
         Rows<uint32_t, const char*, const char*, bool>{{kKron, "PDR3", "PDR5", true},
                                                        {kKron, "PDR4", "CTL48", false},
                                                        {kKron, "PDR3", "PDR55", false},
                                                        {kKron, "PDR5", "PDR3", false},
                                                        {kNvme, "PDR4", "CTL48", true}}) {
        SCOPED_TRACE(std::string{row_first} + " " + row_second);
        EventData* const first = make_event_data(row_first);
        EventData* const second = make_event_data(row_second);
        rtcache_CopyCachedEvent(eid, kDisk, kChanged, 3, first);
        rtcache_CopyCachedEvent(eid, kDisk, kChanged, 3, first);  // again: no conflict
        rtcache_CopyCachedEvent(eid, kDisk, kChanged, 3, second);
        rtcache_CopyCachedEvent(eid, kDisk, kChanged, 3, nullptr);
        EXPECT_EQ(platform.count_logged(4, conflict[eid == kNvme]), 1);
        EXPECT_EQ(logged(4, std::string{"event_data_free->messageId:"} + row_first), freed);
        EXPECT_EQ(platform.count_logged(4, "event_data_pd not null , objKey=3"), 3);
        EXPECT_TRUE(logged(4, "even_data NULL overwrite check passed"));
        EXPECT_EQ(Drained{eid}.disks->eventData[3], second);
        if (!freed) {
            vexutils::free_event_data(first);
        }
        platform.clear_lines();
    }
}

TEST_F(CachedEvents, ExternalDisksBehindAnHbaAreDropped) {
    wchar_t external[300] = L"Disk.Bay.1:Enclosure.External.0-1";
    wchar_t internal[] = L"Disk.Bay.1:Enclosure.Internal.0-1";
    std::fill(external + wcslen(external), std::end(external) - 1, L'x');
    for (const auto& [what, eid, id, key, fqdd, kind, linked, result, recorded] :
         Rows<const char*, uint32_t, uint32_t, uint32_t, wchar_t*, uint32_t, bool, uint32_t, bool>{
             {"external", kHba, 0xFFFFFFFF, 5, external, kDisk, true, 0, false},
             {"id set", kHba, 1, 5, external, kDisk, true, 0, true},
             {"internal", kHba, 0xFFFFFFFF, 5, internal, kDisk, true, 0, true},
             {"no FQDD", kHba, 0xFFFFFFFF, 5, nullptr, kDisk, true, 0, true},
             {"an enclosure", kHba, 0xFFFFFFFF, 5, external, RT_OBJ_ENCLOSURE, true, 0, true},
             {"no record", kHba, 0xFFFFFFFF, 5, external, kDisk, false, 0, true},
             {"no node", kHba, 0xFFFFFFFF, 6, external, kDisk, true, 0, true},
             {"beyond the disks", kHba, 0xFFFFFFFF, 2048, external, kDisk, true, 2, false},
             {"beyond all keys", kHba, 0xFFFFFFFF, 65536 + 5, external, kDisk, true, 0, true},
             {"another controller", kKron, 0xFFFFFFFF, 5, external, kDisk, true, 0, true}}) {
        StorageObjectRecord disk{};
        disk.hdr.FQDD = fqdd;
        disk.body.pd.deviceInfoId = id;
        RtCacheEnclosureLink link{{{linked ? &disk : nullptr}}};
        RtCacheDiskNode node{kind, &link};
        rtcache_SetCachedObject(3, eid, 5, &node);
        EXPECT_EQ(rtcache_SetCachedEvent(eid, kDisk, 4, key), result);
        rtcache_SetCachedObject(3, eid, 5, nullptr);
        EXPECT_EQ(logged(2, "HBA EID and it is a external Physical disk"),
                  !recorded && result == 0);
        EXPECT_EQ(logged(2, "HBA EID and it is a Physical disk"), eid == kHba);
        EXPECT_EQ(logged(2, "<-- err2rtcache_SetCachedEvent"), result == 2);
        EXPECT_EQ(Drained{eid}.events->eventCount, recorded ? 1u : 0u);
        platform.clear_lines();
    }
}

TEST_F(CachedEvents, EndpointsThatAreNotRegistered) {
    RtCacheEventRow* events = nullptr;
    RtCacheDiskChangeRow* disks = nullptr;
    EventData* const data = make_event_data("CTL1");
    for (const uint32_t eid : {40u, 255u, 256u + kKron}) {
        const uint32_t refused = eid > 254 ? 2 : 1;
        EXPECT_EQ(rtcache_SetCachedEvent(eid, 0, 1, 1), refused);
        EXPECT_EQ(rtcache_SetCachedEvent_roll_up(eid, 0, 1, 1, data), 1u);
        EXPECT_EQ(rtcache_GetCachedEvents(eid, &events, &disks), 1u);
        EXPECT_EQ(rtcache_SetDelayedCachedEvent(eid, 0, 1, 1), refused);
        EXPECT_EQ(rtcache_PurgeDelayedCachedEvents(eid, 0), refused);
    }
    vexutils::free_event_data(data);  // still the caller's
    for (const char* line :
         {"ENDPOINT failed to get, EID lookup error", "<-- err3rtcache_SetCachedEvent",
          "<-- err1rtcache_SetCachedEvent", "<-- err1rtcache_PurgeDelayedCachedEvents"}) {
        EXPECT_TRUE(logged(2, line)) << line;
    }
    EXPECT_EQ(platform.count_logged(2, "<-- err2 40"), 2);
    // A position beyond the count has a row but no type: as any endpoint that is not NVMe.
    cache_StorageEIDInfo.storageEID[5] = 40;
    EXPECT_EQ(rtcache_SetCachedEvent(40, kDisk, kChanged, 1), 0u);
    EXPECT_TRUE(logged(1, "<-- error get Storage EID Failrtcache_CopyCachedEvent"));
}

TEST_F(CachedEvents, AFailedDrainDrainsNothing) {
    EventData* const data = make_event_data("PDR3");
    rtcache_CopyCachedEvent(kKron, kDisk, kChanged, 3, data);
    rtcache_CopyCachedEvent(kKron, 0, 1, 1, nullptr);
    RtCacheEventRow* events = nullptr;
    RtCacheDiskChangeRow* disks = nullptr;
    EXPECT_EQ(rtcache_GetCachedEvents(kKron, nullptr, &disks), 2u);
    EXPECT_EQ(rtcache_GetCachedEvents(kKron, &events, nullptr), 2u);
    for (const auto& [line, place, n] :
         Rows<const char*, Place, int>{{"<-- err3rtcache_GetCachedEvents", Place::Lock, 1},
                                       {"<-- err4rtcache_GetCachedEvents", Place::Allocation, 1},
                                       {"<-- err5rtcache_GetCachedEvents", Place::Allocation, 2}}) {
        const AllocationScope scope;
        platform.fail(place, n);
        EXPECT_EQ(rtcache_GetCachedEvents(kKron, &events, &disks), 3u);
        EXPECT_TRUE(logged(2, line));
        platform.no_faults();
    }
    EXPECT_TRUE(events == nullptr && disks == nullptr);
    const Drained drained{kKron};
    EXPECT_EQ(drained.text(), "0.1.1 +3 ");
    EXPECT_EQ(drained.disks->eventData[3], data);
}

TEST_F(CachedEvents, BitmapTextIsWhatAFormatterWrites) {
    std::mt19937 random{1};
    std::array<uint8_t, 256> bitmap{};
    for (max_physicaldevices = 0; max_physicaldevices < 2200; max_physicaldevices += 11) {
        for (auto i = random() % 40; i > 0; --i) {
            bitmap[random() % bitmap.size()] = static_cast<uint8_t>(random());
        }
        std::string expected;
        for (uint32_t i = 0; i * 8 < std::min(max_physicaldevices, 2048u); ++i) {
            char text[4];
            snprintf(text, sizeof(text), "%02x ", bitmap[i]);
            expected += text;
        }
        ASSERT_EQ(vexutils::BitmapText{bitmap.data()}.get(), expected);
    }
}

TEST_F(CachedEvents, HeldBackEventsJoinTheOthersAtThePurge) {
    EXPECT_EQ(rtcache_SetDelayedCachedEvent(kKron, kDisk, kChanged, 9), 0u);
    EXPECT_EQ(logged_lines(), (Lines{"4 --> entry, EID:8, objType:0x3, eventType:0x3, objKey:9",
                                     bitmap_line("DCache", ""), "2 u16Index:[1], u16Shift:[1]",
                                     bitmap_line("DCache", "00 02 "), "4 <-- exit"}));
    EXPECT_EQ(rtcache_SetDelayedCachedEvent(kKron, 0x12345, 0x54321, 0x10000), 0u);
    EXPECT_EQ(rtcache_SetDelayedCachedEvent(kKron, kDisk, kChanged, 2048), 0u);
    EXPECT_TRUE(logged(2, "Error: objKey is more than MAX_PHYSICALDEVICESs"));
    rtcache_SetCachedEvent(kKron, kDisk, kChanged, 8);
    rtcache_SetCachedEvent(kKron, 0, 1, 1);
    cache_Events_PD_ChObj_delayed[0].bitmap[511] = 1;  // beyond the disks: cleared, not moved
    platform.clear_lines();
    EXPECT_EQ(rtcache_PurgeDelayedCachedEvents(kKron, -5), 0u);
    EXPECT_EQ(logged_lines(),
              (Lines{"4 --> entry, with EID:8, dcmdOpcode:-5", bitmap_line("Cache", "00 01 "),
                     bitmap_line("DCache", "00 02 "), "4 cache BM:0x1, delayed BM:0x2",
                     bitmap_line("Cache", "00 03 "), "4 Done updating cache for delayed events"}));
    const RtCacheDelayedBitmap& held = cache_Events_PD_ChObj_delayed[0];
    EXPECT_EQ(cache_Events_delayed[0].eventCount + held.bitmap[1] + held.bitmap[511], 0u);
    EXPECT_EQ(Drained{kKron}.text(), "0.1.1 9029.17185.65536 +8 +9 ");  // of types, 16 bits
    EXPECT_EQ(rtcache_PurgeDelayedCachedEvents(kKron, 0), 0u);
    EXPECT_TRUE(logged(4, "<-- No event in queue. count:0"));
    EXPECT_TRUE(all_zero(0));
}

TEST_F(CachedEvents, APurgeBeyondTheDepthStartsTheListAgain) {
    EventData* const dropped = make_event_data("CTL1");
    for (uint32_t i = 0; i < 380; ++i) {
        rtcache_CopyCachedEvent(kKron, 0, 1, i, i == 0 ? dropped : nullptr);
    }
    for (uint32_t i = 0; i < 384 + 10; ++i) {
        rtcache_SetDelayedCachedEvent(kKron, 0, 2, i);  // starts its own list again too
    }
    EXPECT_EQ(rtcache_PurgeDelayedCachedEvents(kKron, 0), 0u);
    EXPECT_EQ(platform.count_logged(4, "Purging older events. u32Count:385"), 1);
    EXPECT_EQ(cache_Events[0].eventCount, 6u);
    EXPECT_EQ(cache_Events[0].events[5].objKey, 393u);
    EXPECT_EQ(cache_Events[0].events[0].eventData, nullptr);
    vexutils::free_event_data(dropped);
}

}  // namespace
