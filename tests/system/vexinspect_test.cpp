// What another process sees of the regions.

#include <regex>

#include "platform/shm.h"
#include "tests/system/tool_process.h"
#include "vexinspect/layout_table.h"

namespace {

class Vexinspect : public ToolTest {
  protected:
    void expect(const std::string& arguments, const Lines& parts) const {
        const ToolResult result = vexinspect(arguments);
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_FALSE(std::regex_search(result.output, std::regex("[^\n]{81}"))) << "too wide";
        for (const std::string& part : parts) {
            EXPECT_NE(result.output.find(part), std::string::npos) << result.output;
        }
    }
};

TEST_F(Vexinspect, ShowsTheShippedScenario) {
    ASSERT_EQ(vexsim("--quiet --keep --state " + dir / "state").status, 0);
    EXPECT_EQ(vexinspect("--json").output,
              file_content(source_path("scenarios/expected/default.inventory.json")));
    expect("list", {"      15  extender cards     65668  another daemon          written\n"});
    expect("show", {"  0  KRON     1     0  57 C     34 C  5645:1f47:5645:0101  on\n"
                    "  1  KRON     3     0  59 C     36 C  5645:2100:5645:0103  on\n"
                    "  2  KRON     6     0  55 C        -  5645:1f44:5645:0106  on\n",
                    "Batteries (2)\n  #  Controller slot  State\n  0                1  ready\n"});
    expect("fru",
           {"Controller cards (3)", "259     0  present     48  TAVI-A2  TAVI-A2 boot storage",
            "PCIe SSD drives, by global slot (7)", "0001    NVMe SSD  Disk.Bay.6:Enclosure.",
            "PCIe SSD cards (1)", "NVMe SSD card  PCIeSSD.Slot.9-1", "PCIe SSD cards of kind 2 (1)",
            "NVMe boot card  PCIeSSD.Slot.10-1"});
    expect("--state " + dir / "state" + " map",
           {"|  NVMe  |* NVMe *|  NVMe  |  NVMe  |  NVMe  |   .    |\n"
            "  | EID 32 | EID 33 | EID 34 | EID 35 | EID 36 | EID 37 | EID 38 |"});
    EXPECT_EQ(vexinspect("map").output.find("EID"), std::string::npos);
}

TEST_F(Vexinspect, WhatNobodyPublishedIsNotYetInventoried) {
    for (const char* arguments :
         {"list", "show", "map", "fru", "show drives", "watch --updates 1"}) {
        expect(arguments, {"not yet inventoried"});
    }
    EXPECT_FALSE(anything_published());
    const int32_t count = -1;
    EXPECT_EQ(Zent_shm_memwrite(ZENT_SHM_STORAGE_INVENTORY, &count, 0, sizeof(count)), 0);
    expect("show controllers drives", {"Controllers\n  not yet inventoried\nDrives (0)"});
}

TEST(LayoutTable, NamesEveryByteOfEveryRegionOnce) {
    for (const vexinspect::Region& region : vexinspect::regions()) {
        std::vector<int> named(region.size, 0);
        for (const vexinspect::Field& field : region.fields) {
            for (uint32_t i = 0; i < field.count; ++i) {
                const uint32_t begin = field.offset + i * field.stride;
                ASSERT_LE(begin + field.length, region.size) << field.name;
                std::for_each(&named[begin], &named[begin] + field.length, [](int& n) { ++n; });
            }
        }
        EXPECT_EQ(named, std::vector<int>(region.size, 1)) << region.title;
    }
}

}  // namespace
