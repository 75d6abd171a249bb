#include "rt_shm.h"
#include "tests/support/platform_test.h"

namespace {
class Fru : public PlatformTest {
  protected:
    // Adds a card to the platform's table.
    void card(uint16_t id, uint8_t type, uint8_t slot, const Bytes& data) {
        Bytes& table = platform.region(49);
        const size_t entry = 9 + 15u * table[6]++;
        table[entry] = static_cast<uint8_t>(id);
        table[entry + 1] = static_cast<uint8_t>(id >> 8);
        table[entry + 4] = type;
        const auto low = static_cast<uint8_t>(data.size());
        const auto high = static_cast<uint8_t>(data.size() >> 8);
        platform.frus[id] = {{1, 0x34, 0x12, 3, slot, 5, 0, low, high, 9, 0, 1, 0, 7, 0}, data};
    }
};

TEST_F(Fru, CardsAreFoundByTypeAndSlot) {
    card(0x0101, 4, 3, {1});
    card(0x0102, 9, 5, {2});
    card(0x0103, 4, 5, Bytes(300, 3));
    card(0x0104, 9, 6, {4});
    platform.frus.erase(0x0102);  // its information cannot be read
    const auto hba = get_HBA_FRU_Info, kron = get_KRON_TAVI_FRU_Info;
    uint8_t* data = nullptr;
    uint32_t size = 0;
    for (const auto& [what, function, type, slot, result, expected] :
         Rows<const char*, decltype(hba), uint8_t, uint8_t, uint32_t, Bytes>{
             {"HBA, second slot", hba, 4, 5, 0, Bytes(300, 3)},
             {"KRON, type 4 by slot", kron, 4, 3, 0, {1}},
             {"KRON, type 4, no such slot", kron, 4, 255, 3, {}},
             {"KRON, first readable of its type", kron, 9, 255, 0, {4}}}) {
        EXPECT_EQ(function(&data, &size, type, slot), result);
        EXPECT_EQ(Bytes(data, data + size), expected);
        vexel_free(data);
    }
}

TEST_F(Fru, TheTaviModelIsItsControllerName) {
    EXPECT_EQ(is_TAVI_A2_Present(), 1u) << "no card";
    uint8_t slot = 0, found = 0;
    for (const auto& [name, revision, shown] : Rows<std::string, uint32_t, const char*>{
             {"TAVI-A2 rest", 2, "TAVI-A2"},
             {"tavi-a1" + std::string(40, 'x'), 1, "tavi-a1xxxxxxxxxxxxxxxxxxxxxxxxx"},
             {"TAVI-A", 0, "TAVI-A"},
             {"TAV", 0, "TAV"},
             {"T", 0, "T"},
             {"", 0, ""}}) {
        platform.region(49)[6] = 0;
        Bytes data(19 + name.size(), 0x11);
        std::ranges::copy(name, data.begin() + 19);
        card(0x0201, 17, 9, data);
        EXPECT_EQ(is_TAVI_A2_Present(), revision == 2 ? 0u : 1u);
        EXPECT_TRUE(logged(2, std::string("Controller Name is ") + shown));
        EXPECT_EQ(update_TAVI_FRU_Info(&platform.region(49)[9], &slot, &found), 0u);
        EXPECT_EQ(slot, 9);
        EXPECT_EQ(found, revision) << "as get_TAVI_Revison tells it";
    }
}

TEST_F(Fru, FqddsOfPcieSsdsAreTakenApart) {
    // length: of a text in 16-bit characters
    for (const auto& [fqdd, length, result, place, row_type] :
         Rows<const char*, uint32_t, uint32_t, Bytes, uint32_t>{
             {"PCIeSSD.Slot.3-1", 0, 0, {3, 1}, 8},
             {"PxCxIxexSxSxDx.xSxlxoxtx.x3x-x1x", 32, 0, {3, 1}, 8},
             {"PCIeSSD.Integrated.12-34", 0, 0, {12, 34}, 4},
             {"PCIeSSD.SLX.258-x", 0, 0, {2, 0}, 1},
             {"PCIeSSD.Bay.7", 0, 0, {7, 0}, 77},
             {"Disk.Slot.3-1", 0, 1, {0xEE, 0xEE}, 77}}) {
        uint8_t slot = 0xEE, index = 0xEE;
        uint32_t type = 77;
        EXPECT_EQ(getSlotandSlotIndexfromFQDD(fqdd, length, &slot, &index, &type), result);
        EXPECT_EQ((Bytes{slot, index}), place);
        EXPECT_EQ(type, row_type);
    }
}

}  // namespace
