#include <memory>

#include "platform/fqdd.h"
#include "tests/support/linux_test.h"

namespace {

std::string friendly(const char* fqdd) {
    const std::unique_ptr<char, decltype(&std::free)> name{ConvertFQDDToFriendlyName(fqdd),
                                                           std::free};
    return name == nullptr ? "(none)" : name.get();
}

TEST(LinuxFqdd, NamesEveryFormTheLibraryBuilds) {
    for (const auto& [fqdd, name] : Rows<const char*, const char*>{
             {"Disk.Bay.7:Enclosure.Internal.0-2:PCIeExtender.Slot.3",
              "Disk 7 in Backplane 2 on PCIe Extender in Slot 3"},
             {"Disk.Bay.0:Enclosure.Internal.1-4:RAID.Slot.3-2",
              "Disk 0 in Backplane on Connector 1, Number 4 on RAID Controller in Slot 3, "
              "Function 2"},
             {"Disk.Bay.11:Enclosure.External.1-0:NonRAID.Slot.6-1",
              "Disk 11 in Enclosure on Connector 1, Number 0 on Storage Adapter in Slot 6"},
             {"Disk.Direct.0-1:TAVI.Slot.2-1",
              "Direct-Attached Disk 0 on Connector 1 on TAVI Boot Controller in Slot 2"},
             {"Disk.Virtual.239:ROR.Integrated.1-1",
              "Virtual Disk 239 on Integrated ROR Boot Controller 1"},
             {"Battery.Integrated.1:RAID.SL.4-1", "Battery 1 on RAID Controller in SL 4"},
             {"Tape.Bay.2:NonRAID.Integrated.1-1", "Tape Drive 2 on Integrated Storage Adapter 1"},
             {"PCIeSSD.Integrated.65535-2", "Integrated PCIe SSD 65535, Function 2"}}) {
        EXPECT_EQ(friendly(fqdd), name) << fqdd;
    }
}

TEST(LinuxFqdd, GivesNothingForOtherTexts) {
    EXPECT_EQ(ConvertFQDDToFriendlyName(nullptr), nullptr);
    EXPECT_EQ(friendly(""), "(none)");
    for (const std::string& text :
         words(": Disk.Bay.7: :Disk.Bay.7 Disk.Bay.x Disk.Bay.-1 Disk.Bay.07 Disk.Bay.123456 "
               "NIC.Slot.1-1 RAID.Slot.3 RAID.Slot.3-1-1 RAID.Slot.3-1:Disk.Bay.7")) {
        EXPECT_EQ(friendly(text.c_str()), "(none)") << text;
    }
    EXPECT_EQ(friendly(("Disk.Bay." + std::string(1 << 20, '1')).c_str()), "(none)");
}

}  // namespace
