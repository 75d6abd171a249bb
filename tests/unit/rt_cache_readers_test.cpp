#include <bit>
#include <random>

#include "tests/support/cache_test.h"

namespace {

class EventReaders : public CacheTest {
  protected:
    static constexpr uint32_t kEid = 9;

    // Records of types 4, 3 and 2, and disks 0 and 2047 changed; ids "a" to "c" and "d0", "d1".
    void SetUp() override {
        CacheTest::SetUp();
        add_endpoint(kEid);
        record();
        gRTCache_EventCount = 100;
    }
    void TearDown() override {
        free_list(list);
        const Drained rest{kEid};
        CacheTest::TearDown();
    }
    static void record() {
        const CacheLock lock;
        rtcache_CopyCachedEvent(kEid, 4, 1, 40, make_event_data("a"));
        rtcache_CopyCachedEvent(kEid, 3, 1, 30, make_event_data("b"));
        rtcache_CopyCachedEvent(kEid, 2, 3, 20, make_event_data("c"));
        rtcache_CopyCachedEvent(kEid, 3, 3, 0, make_event_data("d0"));
        rtcache_CopyCachedEvent(kEid, 3, 3, 2047, make_event_data("d1"));
    }
    static void free_list(RtCacheEventNode*& list) {
        while (list != nullptr) {
            RtCacheEventNode* next = list->next;
            vexutils::free_event_data(static_cast<EventData*>(list->eventData));
            vexel_free(list);
            list = next;
        }
    }
    static size_t nodes(const RtCacheEventNode* node) {
        return node == nullptr ? 0 : 1 + nodes(node->next);
    }
    static std::string text(const RtCacheEventNode* node) {
        std::string result;
        for (; node != nullptr; node = node->next) {
            result += std::to_string(node->objType) + "." + std::to_string(node->eventType) + "." +
                      std::to_string(node->objKey) +
                      static_cast<EventData*>(node->eventData)->messageId + " ";
        }
        return result;
    }
    RtCacheEventNode* list = nullptr;
};

TEST_F(EventReaders, DrainedRowsBecomeAListLastFirst) {
    RtCacheEventRow* events = nullptr;
    RtCacheDiskChangeRow* disks = nullptr;
    ASSERT_EQ(rtcache_GetCachedEvents(kEid, &events, &disks), 0u);
    for (int n = 1; n <= 5; ++n) {
        SCOPED_TRACE(n);
        platform.fail(Place::Allocation, n);
        const AllocationScope scope;
        EXPECT_EQ(rtcache_ConvertCacheToEvent(events, disks, &list), 3u);
        EXPECT_EQ(list, nullptr);
        EXPECT_EQ(gRTCache_EventCount, 100u);
    }
    platform.no_faults();
    EXPECT_EQ(rtcache_ConvertCacheToEvent(events, disks, &list), 0u);
    EXPECT_EQ(text(list), "3.3.2047d1 3.3.0d0 2.3.20c 3.1.30b 4.1.40a ");
    EXPECT_EQ(gRTCache_EventCount, 105u);

    events->eventCount = 1;
    events->events[0] = {6, 1, 60, make_event_data("e")};
    disks->bitmap[0] = disks->bitmap[255] = 0;
    EXPECT_EQ(rtcache_ConvertCacheToEvent(events, disks, &list), 0u);
    EXPECT_EQ(text(list).substr(0, 19), "6.1.60e 3.3.2047d1 ") << "in front of the list there is";
    EXPECT_EQ(rtcache_ConvertCacheToEvent(nullptr, disks, &list), 2u);
    EXPECT_EQ(rtcache_ConvertCacheToEvent(events, nullptr, &list), 2u);
    EXPECT_EQ(rtcache_ConvertCacheToEvent(events, disks, nullptr), 2u);
    events->eventCount = 0xFFFFFFFF;  // no more than the row holds
    std::ranges::fill(events->events, RtCacheEvent{});
    RtCacheEventNode* others = nullptr;
    EXPECT_EQ(rtcache_ConvertCacheToEvent(events, disks, &others), 0u);
    EXPECT_EQ(gRTCache_EventCount, 106u + 384u);
    free_list(others);
    vexel_free(events);
    vexel_free(disks);
}

TEST_F(EventReaders, EventsOfOneTypeAreTakenOut) {
    for (const auto& [what, type, taken, left] :
         Rows<const char*, uint32_t, const char*, const char*>{
             {"first", 4, "4.1.40a ", "3.3.2047d1 3.3.0d0 2.3.20c 3.1.30b "},
             {"disks: records and bits", 3, "3.3.2047d1 3.3.0d0 3.1.30b ", "2.3.20c 4.1.40a "},
             {"none", 7, "", "3.3.2047d1 3.3.0d0 2.3.20c 3.1.30b 4.1.40a "}}) {
        uint32_t result = 3;
        int failures = 0;
        while (result == 3) {
            platform.fail(Place::Allocation, failures + 1);
            const AllocationScope scope;
            result = rtcache_GetEventsByObjType(kEid, type, &list);
            failures += result == 3 ? 1 : 0;
            EXPECT_EQ(list == nullptr, result == 3 || *taken == '\0');
        }
        platform.no_faults();
        EXPECT_EQ(text(list), taken);
        EXPECT_EQ(failures, std::ranges::count(std::string{taken}, ' '));
        free_list(list);

        RtCacheEventRow* events = nullptr;
        RtCacheDiskChangeRow* disks = nullptr;
        ASSERT_EQ(rtcache_GetCachedEvents(kEid, &events, &disks), 0u);
        EXPECT_EQ(rtcache_ConvertCacheToEvent(events, disks, &list), 0u);
        EXPECT_EQ(disks->eventData[2047] == nullptr, type == 3) << "taken with its bit";
        EXPECT_EQ(text(list), left);
        free_list(list);
        vexel_free(events);
        vexel_free(disks);
        record();
    }
    EXPECT_EQ(rtcache_GetEventsByObjType(kEid, 3, nullptr), 2u);
    EXPECT_EQ(rtcache_GetEventsByObjType(8, 3, &list), 1u);
    EXPECT_EQ(rtcache_GetEventsByObjType(255, 3, &list), 1u);
    platform.fail(Place::Lock);
    EXPECT_EQ(rtcache_GetEventsByObjType(kEid, 3, &list), 3u);
}

// Any count, records and bits: one node for each of a type, the rest stays in order.
TEST_F(EventReaders, AnyRowsLoseWhatIsTaken) {
    std::mt19937 random{31};
    const auto below = [&](uint32_t bound) { return static_cast<uint32_t>(random() % bound); };
    RtCacheEventRow& row = cache_Events[GetIndexFromEID(kEid)];
    RtCacheDiskChangeRow& changes = cache_Events_PD_ChObj[GetIndexFromEID(kEid)];
    platform.record_lines(false);
    for (int round = 0; round < 200; ++round) {
        { const Drained rest{kEid}; }
        row.eventCount = below(4) == 0 ? static_cast<uint32_t>(random()) : below(386);
        std::ranges::generate(row.events, [&] {
            return RtCacheEvent{below(6), below(9), static_cast<uint32_t>(random()), nullptr};
        });
        size_t bits = 0;
        for (size_t i = 0; i < std::size(changes.bitmap); ++i) {
            const auto byte = static_cast<uint8_t>(random() & random() & random());
            changes.bitmap[i] = byte;
            bits += i < RTCACHE_DISK_SLOTS / 8 ? static_cast<size_t>(std::popcount(byte)) : 0;
        }
        const uint32_t type = below(6);
        std::vector<uint32_t> taken, left;
        for (uint32_t i = 0; i < std::min<size_t>(row.eventCount, std::size(row.events)); ++i) {
            const RtCacheEvent event = row.events[i];
            (event.objType == type ? taken : left).push_back(uint32_t{event.objKey});
        }
        ASSERT_EQ(rtcache_GetEventsByObjType(kEid, type, &list), 0u);
        ASSERT_EQ(nodes(list), taken.size() + (type == 3 ? bits : 0));
        free_list(list);
        ASSERT_EQ(row.eventCount + 0u, left.size());
        for (size_t i = 0; i < left.size(); ++i) {
            ASSERT_EQ(row.events[i].objKey + 0u, left[i]);
        }
        ASSERT_EQ(rtcache_ConvertCacheToEvent(&row, &changes, &list), 0u);
        ASSERT_EQ(nodes(list), left.size() + (type == 3 ? 0 : bits));
        free_list(list);
    }
}

}  // namespace
