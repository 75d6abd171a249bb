// The storage object record's layout on the controller, asserted where pointers are 4 bytes;
// elsewhere only the order of fields holds and the record grows by its pointers. And what its
// copies and their teardown must agree on.
#ifndef VEXUTILS_INTERNAL_STORAGE_OBJECT_H
#define VEXUTILS_INTERNAL_STORAGE_OBJECT_H

#include <cstddef>

#include "rt_dup.h"

namespace vexutils {

inline constexpr bool kContractLayout = sizeof(void*) == 4;

#define VEX_AT(member, offset) \
    static_assert(!kContractLayout || offsetof(StorageObjectRecord, member) == (offset))
static_assert(!kContractLayout || sizeof(StorageObjectRecord) == 512);
static_assert(!kContractLayout || sizeof(AdapterTextEntry) == 9);
static_assert(!kContractLayout || sizeof(SmartPageSlot) == 8);
VEX_AT(NAME, 8);
VEX_AT(hdr.VERSION, 16);
VEX_AT(hdr.FQDD, 20);
VEX_AT(body, 24);
VEX_AT(body.adapter.ctrlAttr, 52);
VEX_AT(body.adapter.capabilityMask, 88);
VEX_AT(body.adapter.text112, 112);
VEX_AT(body.adapter.capabilities, 116);
VEX_AT(body.adapter.capabilityMultiplier, 160);
VEX_AT(body.adapter.spdm, 179);
VEX_AT(body.adapter.pldm, 180);
VEX_AT(body.adapter.entries, 424);
VEX_AT(body.battery.state, 24);
VEX_AT(body.pd.size, 32);
VEX_AT(body.pd.state, 40);
VEX_AT(body.pd.slot, 48);
VEX_AT(body.pd.multipath, 57);
VEX_AT(body.pd.enclosureId, 60);
VEX_AT(body.pd.deviceInfoId, 64);
VEX_AT(body.pd.keyId, 384);
VEX_AT(body.pd.text417, 417);
VEX_AT(body.pd.text426, 426);
VEX_AT(body.pd.text430, 430);
VEX_AT(body.pd.text434, 434);
VEX_AT(body.pd.wordCount, 503);
VEX_AT(body.pd.words, 504);
VEX_AT(body.vd.size, 76);
VEX_AT(body.vd.memberCount, 500);
VEX_AT(body.vd.targetID, 504);
VEX_AT(body.enclosure.position, 70);
VEX_AT(body.enclosure.slotCount, 77);
VEX_AT(body.smart.pageSelector, 68);
VEX_AT(body.smart.flags, 80);
VEX_AT(body.smart.pages, 84);
VEX_AT(body.smart.nvmeBlock, 226);
VEX_AT(body.foreign.virtualDiskCount, 64);
VEX_AT(body.foreign.virtualDisks, 68);
VEX_AT(body.foreign.physicalDiskCount, 76);
VEX_AT(body.foreign.physicalDisks, 80);
#undef VEX_AT

inline constexpr std::size_t kPagesOfSelector16 = 5;

// Page slots that a SMART record without the NVMe flag owns, the first ones; none if its selector
// is unknown.
constexpr std::size_t owned_pages(const SmartDataBody& smart) {
    switch (smart.pageSelector) {
        case RT_SMART_SELECT_7_PAGES:
            return RT_SMART_PAGES;
        case RT_SMART_SELECT_5_PAGES:
            return kPagesOfSelector16;
        default:
            return 0;
    }
}

}  // namespace vexutils

#endif  // VEXUTILS_INTERNAL_STORAGE_OBJECT_H
