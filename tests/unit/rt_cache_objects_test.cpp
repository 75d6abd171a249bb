#include "rt_cache.h"
#include "tests/support/cache_test.h"

namespace {

class CachedObjects : public CacheTest {
  protected:
    void SetUp() override {
        CacheTest::SetUp();
        add_endpoint(8);
        add_endpoint(9);
        platform.clear_lines();
    }

    // Objects of these tests are not the cache's to free.
    void TearDown() override {
        for (const int key : {0, 5, 8, 16, 253, 254, 2047}) {
            for (const uint32_t key_type : {2u, 3u, 4u, 5u, 6u, 8u}) {
                rtcache_SetCachedObject(key_type, 9, static_cast<uint16_t>(key), nullptr);
            }
        }
        CacheTest::TearDown();
    }

    int objects_[2] = {};
};

TEST_F(CachedObjects, EveryKeyTypeKeepsToItsBounds) {
    const struct {
        const char* what;
        uint32_t key_type, eid;
        uint16_t key;
        uint32_t set, get;
    } rows[] = {
        {"controller", 2, 9, 8, 0, 0},
        {"last controller", 2, 9, 254, 0, 0},
        {"controller beyond", 2, 9, 255, 2, 2},
        {"disk", 3, 9, 0, 0, 0},
        {"last disk", 3, 9, 2047, 0, 0},
        {"disk beyond", 3, 9, 2048, 2, 2},
        {"disk of nobody", 3, 10, 0, 1, 1},
        {"virtual disk", 4, 9, 253, 0, 0},
        {"virtual disk beyond", 4, 9, 254, 2, 2},
        {"virtual disk of nobody", 4, 10, 254, 1, 1},
        {"last backplane", 5, 9, 5, 0, 0},
        {"backplane beyond", 5, 9, 6, 2, 2},
        {"last extender", 6, 9, 16, 0, 0},
        {"extender beyond", 6, 9, 17, 2, 2},
        {"last command counter", 8, 9, 254, 0, 0},
        {"command counter beyond", 8, 9, 255, 2, 2},
        {"no key type", 0, 9, 0, 2, 2},
        {"unused key type", 7, 9, 0, 2, 2},
        {"unknown key type", 9, 9, 0, 2, 2},
        {"free marker", 2, 255, 0, 2, 2},
        {"EID in the low byte only", 3, 256 + 9, 0, 2, 2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        void* const unchanged = &objects_[1];
        void* object = unchanged;
        EXPECT_EQ(rtcache_SetCachedObject(row.key_type, row.eid, row.key, &objects_[0]), row.set);
        EXPECT_EQ(rtcache_GetCachedObject(row.key_type, row.eid, row.key, &object), row.get);
        EXPECT_EQ(object, row.get == 0 ? &objects_[0] : unchanged);
        EXPECT_EQ(rtcache_GetCachedObject(row.key_type, row.eid, row.key, nullptr), 2u);
    }
    EXPECT_EQ(static_cast<void*>(cache_PDs[1][2047]), &objects_[0]);
    EXPECT_EQ(cache_PDs[0][2047], nullptr);
}

TEST_F(CachedObjects, LimitsBelowTheSlotsNarrowTheFetchOfBackplanesOnly) {
    max_pciessd_backplanes = 3;
    max_pciessd_extndrs = 3;
    void* object = &objects_[0];
    EXPECT_EQ(rtcache_GetCachedObject(5, 9, 4, &object), 2u);
    EXPECT_EQ(rtcache_SetCachedObject(5, 9, 4, nullptr), 0u);
    EXPECT_EQ(rtcache_GetCachedObject(5, 9, 3, &object), 0u);
    EXPECT_EQ(object, nullptr);  // an empty slot is a success
    EXPECT_EQ(rtcache_GetCachedObject(6, 9, 16, &object), 0u);
    max_pciessd_backplanes = 0xFFFFFFFF;
    EXPECT_EQ(rtcache_GetCachedObject(5, 9, 6, &object), 2u);
}

TEST_F(CachedObjects, TablePositionsAreWrittenByKeyTypeOne) {
    rtcache_Init();
    uint8_t eid = 40;
    EXPECT_EQ(rtcache_SetCachedObject(1, 0, 7, &eid), 0u);
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 8u);
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(cache_StorageEIDInfo.storageEID[i], RTCACHE_EID_FREE);
    }
    EXPECT_EQ(rtcache_SetCachedObject(1, 0, 2, &eid), 0u);
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 8u);
    EXPECT_EQ(rtcache_SetCachedObject(1, 0, 108, &eid), 2u);
    void* object = nullptr;
    EXPECT_EQ(rtcache_GetCachedObject(1, 0, 108, &object), 2u);
    EXPECT_EQ(rtcache_GetCachedObject(1, 0, 7, &object), 0u);
    EXPECT_EQ(object, &cache_StorageEIDInfo.storageEID[7]);
    platform.clear_lines();
    EXPECT_EQ(rtcache_SetCachedObject(1, 0, 3, nullptr), 2u);
    EXPECT_TRUE(logged(2, "<-- err null pObjectToBeCachedrtcache_SetCachedObject"));
}

// A pair of lines more per fetch would make one inventory update write 65,000 of them.
TEST_F(CachedObjects, LogExactlyTheirLines) {
    const std::string set = "rtcache_SetCachedObject";
    const std::string get = "rtcache_GetCachedObject";
    const struct {
        uint32_t key_type, eid;
        uint16_t key;
        Lines set, get;  // "#" stands for the source line
    } rows[] = {
        {2, 9, 8, {}, {}},
        {3, 9, 16, {"5 --> max_physicaldevices:2048"}, {}},
        {3,
         10,
         16,
         {"5 <-- " + set + " error s32Temp 255"},
         {"5 <-- " + get + " error s32Temp 255"}},
        {4, 9, 16, {}, {}},
        {4, 9, 254, {}, {}},
        {5,
         9,
         6,
         {"4 PCIeSSD Cache max_pciessd_backplanes=5 u16ObjKey=6 #"},
         {"4 PCIeSSD Cache max_pciessd_backplanes=5 u16ObjKey=6 #"}},
        {6,
         9,
         3,
         {"4 PCIeSSD Cache max_pciessd_backplanes=16 u16ObjKey=3 #"},
         {"4 PCIeSSD Cache max_pciessd_extndrs=16 u16ObjKey=3 #"}},
        {7,
         9,
         0,
         {"2 <-- err wrong keytype" + set + " 7"},
         {"2 <-- err wrong keytype" + get + " 7"}},
        {8, 9, 5, {"5 PCIeSSD Cache u16ObjKey=5 #"}, {}},
        {3, 255, 0, {"2 <-- err null inputs" + set}, {"2 <-- err null inputs" + get}},
    };
    const auto without_source_line = [](Lines lines) {
        for (std::string& line : lines) {
            if (line.find("PCIeSSD Cache") != std::string::npos) {
                const std::size_t blank = line.rfind(' ');
                EXPECT_GT(std::stoi(line.substr(blank)), 40);
                line.replace(blank, std::string::npos, " #");
            }
        }
        return lines;
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.key_type);
        rtcache_SetCachedObject(row.key_type, row.eid, row.key, nullptr);
        Lines expected{"5 --> enter with EID:" + std::to_string(row.eid) +
                       ", u16ObjKey:" + std::to_string(row.key) + ", pObjectToBeCached:(nil)"};
        expected.insert(expected.end(), row.set.begin(), row.set.end());
        EXPECT_EQ(without_source_line(logged_lines()), expected);
        void* object = nullptr;
        rtcache_GetCachedObject(row.key_type, row.eid, row.key, &object);
        EXPECT_EQ(without_source_line(logged_lines()), row.get);
    }
}

}  // namespace
