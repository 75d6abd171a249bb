#include "tests/support/cache_test.h"

namespace {

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
    ASSERT_EQ(rtcache_GetCachedEvents(kEid, &events, &disks), 0u);
    EXPECT_EQ(rtcache_ConvertCacheToEvent(events, disks, &list), 0u);
    EXPECT_EQ(gRTCache_EventCount, 105u);
    *events = {1, {{6, 1, 60, nullptr}}};
    std::ranges::fill(disks->bitmap, uint8_t{0});
    EXPECT_EQ(rtcache_ConvertCacheToEvent(events, disks, &list), 0u);
    EXPECT_EQ(take(list), "6.1.60 3.3.2047d1 3.3.0d0 2.3.20c 3.1.30b 4.1.40a ")
        << "in front of the list there is";
    EXPECT_EQ(rtcache_ConvertCacheToEvent(nullptr, disks, &list), 2u);
    EXPECT_EQ(rtcache_ConvertCacheToEvent(events, nullptr, &list), 2u);
    EXPECT_EQ(rtcache_ConvertCacheToEvent(events, disks, nullptr), 2u);
    vexel_free(events);
    vexel_free(disks);
}

TEST_F(EventReaders, EventsOfOneTypeAreTakenOut) {
    EXPECT_EQ(rtcache_GetEventsByObjType(kEid, 3, &list), 0u);
    EXPECT_EQ(take(list), "3.3.2047d1 3.3.0d0 3.1.30b ") << "records and bits";
    EXPECT_EQ(rtcache_GetEventsByObjType(kEid, 4, &list), 0u);
    EXPECT_EQ(take(list), "4.1.40a ");
    const Drained rest{kEid};
    EXPECT_EQ(rest.text(), "2.3.20 ");
    EXPECT_EQ(rest.disks->eventData[2047], nullptr) << "taken with its bit";
    EXPECT_EQ(rtcache_GetEventsByObjType(kEid, 3, nullptr), 2u);
    EXPECT_EQ(rtcache_GetEventsByObjType(8, 3, &list), 1u);
}

}  // namespace
