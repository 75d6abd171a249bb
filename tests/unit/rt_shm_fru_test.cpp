#include "rt_shm.h"
#include "tests/support/platform_test.h"

namespace {
using Data = Bytes;

class Fru : public PlatformTest {
  protected:
    // Adds a card to the platform's table.
    void card(uint16_t id, uint8_t type, uint8_t slot, const Data& data) {
        Data& table = platform.region(49);
        const size_t entry = 9 + 15u * table[6]++;
        table[entry] = static_cast<uint8_t>(id);
        table[entry + 1] = static_cast<uint8_t>(id >> 8);
        table[entry + 4] = type;
        const auto low = static_cast<uint8_t>(data.size());
        const auto high = static_cast<uint8_t>(data.size() >> 8);
        platform.frus[id] = {{1, 0x34, 0x12, 3, slot, 5, 0, low, high, 9, 0, 1, 0, 7, 0}, data};
    }

    static Data tavi(const std::string& name) {
        Data data(19 + name.size(), 0x11);
        std::copy(name.begin(), name.end(), data.begin() + 19);
        return data;
    }

    struct Result {
        uint32_t code;
        Data data;
    };
    static Result read(decltype(get_HBA_FRU_Info)* function, uint8_t type, uint8_t slot) {
        uint8_t* data = reinterpret_cast<uint8_t*>(1);
        uint32_t size = 77;
        const uint32_t code = function(&data, &size, type, slot);
        EXPECT_EQ(data != nullptr, code == 0);
        const Data copy(data, data + size);
        vexel_free(data);
        return {code, copy};
    }
};

TEST_F(Fru, CardsAreFoundByTypeAndSlot) {
    card(0x0101, 4, 3, {1});
    card(0x0102, 9, 5, {2});
    card(0x0103, 4, 5, Data(300, 3));
    card(0x0104, 9, 6, {4});
    platform.frus.erase(0x0102);  // its information cannot be read
    const auto hba = get_HBA_FRU_Info, kron = get_KRON_TAVI_FRU_Info;
    const Rows<const char*, decltype(hba), uint8_t, uint8_t, uint32_t, Data> rows{
        {"HBA, second slot", hba, 4, 5, 0, Data(300, 3)},
        {"HBA, no such slot", hba, 4, 6, 3, {}},
        {"HBA, other type by slot", hba, 9, 5, 3, {}},
        {"KRON, type 4 by slot", kron, 4, 3, 0, {1}},
        {"KRON, type 4, no such slot", kron, 4, 255, 3, {}},
        {"KRON, first readable of its type", kron, 9, 255, 0, {4}},
        {"KRON, no such type", kron, 8, 3, 3, {}}};
    for (const auto& [what, function, type, slot, code, data] : rows) {
        const Result result = read(function, type, slot);
        EXPECT_EQ(result.code, code);
        EXPECT_EQ(result.data, data);
    }
    platform.clear_lines();
    read(get_HBA_FRU_Info, 4, 5);
    const std::string lines = told(4);
    EXPECT_TRUE(lines.starts_with(
        "Entry\ncard type match at index:0\nFruId : 257\nDevice_presence : 1\n"
        "device_id : 4660\nfru_rev : 3\nslotNumber : 3\ndevice_type : 5\nsize : 1\n"
        "offset : 65545\nembeddedDevice : 7\nTraversing at slot:3 5\n"))
        << lines;
    EXPECT_TRUE(lines.ends_with("\nHBA FRU is present at slot:5 5, Now get the actual FRU data\n"));
    use_log_file();
    read(get_HBA_FRU_Info, 4, 5);
    EXPECT_TRUE(platform.messages(4).back().starts_with("000060: 03 03 03 03  ")) << "100 bytes";
    EXPECT_EQ(platform.messages(5).back(), "exit");

    uint32_t size = 0;
    EXPECT_EQ(get_HBA_FRU_Info(nullptr, &size, 4, 5), 3u);
    platform.region(49)[6] = platform.region(49)[7] = 0xFF;
    EXPECT_EQ(read(get_HBA_FRU_Info, 4, 6).code, 3u);
    EXPECT_TRUE(logged(3, "FRU table entries:65535 limited to 4377"));
}

TEST_F(Fru, FailuresLeaveNoData) {
    card(0x0101, 4, 3, {1});
    const Rows<Place, int, uint32_t, const char*> rows{
        {Place::Allocation, 1, 3, "Memory allocation failed "},
        {Place::Allocation, 2, 3, nullptr},
        {Place::ShmView, 1, 3, "Failed to get IPMI FRU table"},
        {Place::FruInfo, 1, 3, "Exit"},
        {Place::FruData, 1, 2, nullptr}};
    for (const auto& [place, nth, row_code, line] : rows) {
        platform.clear_lines();
        platform.fail(place, nth);
        const AllocationScope counted;
        EXPECT_EQ(read(get_KRON_TAVI_FRU_Info, 4, 3).code, row_code);
        EXPECT_TRUE(line == nullptr || logged(2, line));
    }
}

TEST_F(Fru, TheTaviModelIsItsControllerName) {
    const Rows<std::string, uint32_t, const char*> rows{
        {"TAVI-A2 rest", 2, "TAVI-A2"},
        {"tavi-a1", 1, "tavi-a1"},
        {"TAVI-A", 0, "TAVI-A"},
        {"TAVI-A2" + std::string(40, 'x'), 2, "TAVI-A2xxxxxxxxxxxxxxxxxxxxxxxxx"},
        {std::string("TAVI\0-A2", 8), 0, "TAVI"},
        {"", 0, ""}};
    EXPECT_EQ(is_TAVI_A2_Present(), 1u);
    EXPECT_TRUE(logged(2, "get_KRON_TAVI_FRU_Info Failed !!!"));
    for (const auto& [name, row_revision, shown] : rows) {
        platform.region(49)[6] = 0;
        const Data data = tavi(name);
        card(0x0201, 17, 9, data);
        EXPECT_EQ(get_TAVI_Revison(data.data(), static_cast<uint32_t>(data.size())), row_revision);
        platform.clear_lines();
        EXPECT_EQ(is_TAVI_A2_Present(), row_revision == 2 ? 0u : 1u);
        EXPECT_TRUE(logged(2, std::string("Controller Name is ") + shown));
        EXPECT_TRUE(
            logged(4, std::string(row_revision == 2 ? "" : "Not A2, ") + "Found  " + shown));
        uint8_t slot = 0, revision = 0xEE;
        EXPECT_EQ(update_TAVI_FRU_Info(&platform.region(49)[9], &slot, &revision), 0u);
        EXPECT_EQ(slot, 9);
        EXPECT_EQ(revision, row_revision);
    }
    uint8_t slot = 0xEE, revision = 0xEE;
    platform.fail(Place::FruData);
    EXPECT_EQ(update_TAVI_FRU_Info(&platform.region(49)[9], &slot, &revision), 2u);
    EXPECT_EQ(update_TAVI_FRU_Info(&platform.region(49)[100], &slot, &revision), 3u);
    EXPECT_EQ(slot & revision, 0xEE);
    EXPECT_EQ(get_TAVI_Revison(nullptr, 100), 0u);
}

TEST_F(Fru, FqddsOfPcieSsdsAreTakenApart) {
    const Rows<const char*, uint32_t, unsigned, unsigned, uint32_t> rows{
        {"PCIeSSD.Slot.3-1", 0, 3, 1, 8},  {"PCIeSSD.Integrated.12-34", 0, 12, 34, 4},
        {"PCIeSSD.SLX.258-x", 0, 2, 0, 1}, {"PCIeSSD.Bay.7", 0, 7, 0, 77},
        {"PCIeSSD", 0, 0, 0, 77},          {"Disk.Slot.3-1", 1, 0xEE, 0xEE, 77}};
    for (const auto& [fqdd, row_code, row_slot, row_index, row_type] : rows) {
        for (const bool wide : {false, true}) {
            uint8_t slot = 0xEE, index = 0xEE;
            uint32_t type = 77;
            std::string text;
            for (const char character : std::string{fqdd}) {
                text += character;
                text += wide ? std::string(1, '\0') : "";
            }
            EXPECT_EQ(getSlotandSlotIndexfromFQDD(text.c_str(),
                                                  wide ? static_cast<uint32_t>(text.size()) : 0,
                                                  &slot, &index, &type),
                      row_code);
            EXPECT_EQ(slot, row_slot);
            EXPECT_EQ(index, row_index);
            EXPECT_EQ(type, row_type);
        }
    }
    uint8_t slot, index;
    uint32_t type;
    const std::string full(400, 'x');
    EXPECT_EQ(getSlotandSlotIndexfromFQDD(full.data(), 400, &slot, &index, &type), 1u);
    EXPECT_TRUE(logged(1, "Invalid fqddstr passed = " + std::string(59, 'x')));
    EXPECT_EQ(getSlotandSlotIndexfromFQDD(nullptr, 0, &slot, &index, &type), 5u);
    EXPECT_TRUE(logged(2, "err1:fqdd is NULL"));
}

}  // namespace
