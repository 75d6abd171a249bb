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
};

TEST_F(CachedObjects, EveryKeyTypeKeepsToItsBounds) {
    for (const auto& [what, key_type, eid, key, result] :
         Rows<const char*, uint32_t, uint32_t, uint16_t, uint32_t>{
             {"controller", 2, 9, 8, 0},
             {"last controller", 2, 9, 254, 0},
             {"controller beyond", 2, 9, 255, 2},
             {"last disk", 3, 9, 2047, 0},
             {"disk beyond", 3, 9, 2048, 2},
             {"disk of nobody", 3, 10, 0, 1},
             {"last virtual disk", 4, 9, 253, 0},
             {"virtual disk beyond", 4, 9, 254, 2},
             {"virtual disk of nobody", 4, 10, 254, 1},
             {"last backplane", 5, 9, 5, 0},
             {"backplane beyond", 5, 9, 6, 2},
             {"last extender", 6, 9, 16, 0},
             {"extender beyond", 6, 9, 17, 2},
             {"last command counter", 8, 9, 254, 0},
             {"command counter beyond", 8, 9, 255, 2},
             {"no key type", 0, 9, 0, 2},
             {"unused key type", 7, 9, 0, 2},
             {"free marker", 2, 255, 0, 2},
             {"EID in the low byte only", 3, 256 + 9, 0, 2}}) {
        int stored = 0;
        void* object = nullptr;
        EXPECT_EQ(rtcache_SetCachedObject(key_type, eid, key, &stored), result);
        EXPECT_EQ(rtcache_GetCachedObject(key_type, eid, key, &object), result);
        EXPECT_EQ(object, result == 0 ? &stored : nullptr);
        EXPECT_EQ(rtcache_GetCachedObject(key_type, eid, key, nullptr), 2u);
        if (key_type == 3 && result == 0) {
            EXPECT_EQ(static_cast<void*>(cache_PDs[1][2047]), &stored);
            EXPECT_EQ(cache_PDs[0][2047], nullptr);
        }
        rtcache_SetCachedObject(key_type, eid, key, nullptr);
    }
}

TEST_F(CachedObjects, LimitsBelowTheSlotsNarrowTheFetchOfBackplanesOnly) {
    max_pciessd_backplanes = max_pciessd_extndrs = 3;
    void* object = &object;
    EXPECT_EQ(rtcache_GetCachedObject(5, 9, 4, &object), 2u);
    EXPECT_EQ(rtcache_SetCachedObject(5, 9, 4, nullptr), 0u);
    EXPECT_EQ(rtcache_GetCachedObject(5, 9, 3, &object), 0u);
    EXPECT_EQ(object, nullptr);  // an empty slot is a success
    EXPECT_EQ(rtcache_GetCachedObject(6, 9, 16, &object), 0u);
    max_pciessd_backplanes = 0xFFFFFFFF;
    EXPECT_EQ(rtcache_GetCachedObject(5, 9, 6, &object), 2u);
}

TEST_F(CachedObjects, TablePositionsAreWrittenByKeyTypeOne) {
    uint8_t eid = 40;
    void* object = nullptr;
    EXPECT_EQ(rtcache_SetCachedObject(1, 0, 7, &eid), 0u);
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 8u);
    EXPECT_EQ(cache_StorageEIDInfo.storageEID[6], RTCACHE_EID_FREE);
    EXPECT_EQ(rtcache_SetCachedObject(1, 0, 2, &eid), 0u);
    EXPECT_EQ(rtcache_GetStorageEIDCount(), 8u);
    EXPECT_EQ(rtcache_SetCachedObject(1, 0, 108, &eid), 2u);
    EXPECT_EQ(rtcache_GetCachedObject(1, 0, 108, &object), 2u);
    EXPECT_EQ(rtcache_GetCachedObject(1, 0, 7, &object), 0u);
    EXPECT_EQ(object, &cache_StorageEIDInfo.storageEID[7]);
    EXPECT_EQ(rtcache_SetCachedObject(1, 0, 3, nullptr), 2u);
    EXPECT_TRUE(logged(2, "<-- err null pObjectToBeCachedrtcache_SetCachedObject"));
}

// A pair of lines more per fetch would make one inventory update write 65,000 of them.
TEST_F(CachedObjects, LogExactlyTheirLines) {
    const std::string set = "rtcache_SetCachedObject", get = "rtcache_GetCachedObject";
    // get: of the fetch none where empty; "#" stands for the source line
    const Rows<uint32_t, uint32_t, uint16_t, std::string, std::string> rows{
        {2, 9, 8, "", ""},
        {3, 9, 16, "5 --> max_physicaldevices:2048", ""},
        {3, 10, 16, "5 <-- " + set + " error s32Temp 255", "5 <-- " + get + " error s32Temp 255"},
        {4, 9, 16, "", ""},
        {4, 9, 254, "", ""},
        {5, 9, 6, "4 PCIeSSD Cache max_pciessd_backplanes=5 u16ObjKey=6 #",
         "4 PCIeSSD Cache max_pciessd_backplanes=5 u16ObjKey=6 #"},
        {6, 9, 3, "4 PCIeSSD Cache max_pciessd_backplanes=16 u16ObjKey=3 #",
         "4 PCIeSSD Cache max_pciessd_extndrs=16 u16ObjKey=3 #"},
        {7, 9, 0, "2 <-- err wrong keytype" + set + " 7", "2 <-- err wrong keytype" + get + " 7"},
        {8, 9, 5, "5 PCIeSSD Cache u16ObjKey=5 #", ""},
        {3, 255, 0, "2 <-- err null inputs" + set, "2 <-- err null inputs" + get}};
    const auto one_line = [](const Lines& lines, size_t at) {
        std::string line = lines.size() == at + 1 ? lines[at] : "";
        if (line.find("PCIeSSD Cache") != std::string::npos) {
            EXPECT_GT(std::stoi(line.substr(line.rfind(' '))), 40);
            line.replace(line.rfind(' '), std::string::npos, " #");
        }
        return lines.size() > at + 1 ? "too many" : line;
    };
    for (const auto& [key_type, eid, key, row_set, row_get] : rows) {
        rtcache_SetCachedObject(key_type, eid, key, nullptr);
        const Lines lines = logged_lines();
        EXPECT_EQ(lines[0], "5 --> enter with EID:" + std::to_string(eid) +
                                ", u16ObjKey:" + std::to_string(key) + ", pObjectToBeCached:(nil)");
        EXPECT_EQ(one_line(lines, 1), row_set);
        void* object = nullptr;
        rtcache_GetCachedObject(key_type, eid, key, &object);
        EXPECT_EQ(one_line(logged_lines(), 0), row_get);
    }
}

}  // namespace
