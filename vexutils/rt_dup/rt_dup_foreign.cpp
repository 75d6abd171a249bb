#include "internal/log.h"
#include "internal/wide_text.h"
#include "rt_dup.h"
#include "rt_dup/rt_dup_parts.h"

namespace vexutils {

namespace {

constexpr char kForeign[] = "DupForeign_Config";

// Whether a member got a name of its own. The flat copy of the array put the source's there.
bool copy_member_name(const StorageObjectRecord& source, StorageObjectRecord& copy) {
    copy.NAME = copy_wide(source.NAME).release();
    return copy.NAME != nullptr;
}

// Gives a virtual disk member ids of its own; without memory for them it has no members.
void copy_member_ids(const StorageObjectRecord& source, StorageObjectRecord& copy) {
    const std::uint32_t* ids = source.body.vd.targetID;
    copy.body.vd.targetID = copy_array(ids, source.body.vd.memberCount).release();
    if (copy.body.vd.targetID != nullptr) {
        LOG_AS(kForeign, Level::Trace, "Copied pds");
    } else if (ids != nullptr) {
        copy.body.vd.memberCount = 0;
        LOG_AS(kForeign, Level::Error, "<--error4 %s", kForeign);
    }
}

}  // namespace

}  // namespace vexutils

using namespace vexutils;

StorageObjectRecord* DupForeign_Config(const StorageObjectRecord* src) {
    LOG(Level::Trace, "--> %s", __func__);
    if (src == nullptr) {
        LOG(Level::Error, "<--error1 %s", __func__);
        return nullptr;
    }
    const std::uint32_t virtual_disks = src->body.foreign.virtualDiskCount;
    const std::uint32_t physical_disks = src->body.foreign.physicalDiskCount;
    if (virtual_disks == 0 && physical_disks == 0) {
        LOG(Level::Error, "<--error6 %s", __func__);
        return nullptr;
    }
    Owned<StorageObjectRecord> copy = copy_named(*src);
    if (copy == nullptr) {
        LOG(Level::Error, "<--error2 %s", __func__);
        return nullptr;
    }

    if (virtual_disks != 0) {
        const StorageObjectRecord* sources = src->body.foreign.virtualDisks;
        StorageObjectRecord* copies = copy_array(sources, virtual_disks).release();
        copy->body.foreign.virtualDisks = copies;
        if (copies == nullptr && sources != nullptr) {
            LOG(Level::Error, "<--error3 %s", __func__);
        }
        for (std::uint32_t i = 0; copies != nullptr && i < virtual_disks; ++i) {
            if (copy_member_name(sources[i], copies[i])) {
                LOG(Level::Trace, "Copied VD Name");
            }
            copy_member_ids(sources[i], copies[i]);
        }
    }
    if (physical_disks != 0) {
        const StorageObjectRecord* sources = src->body.foreign.physicalDisks;
        StorageObjectRecord* copies = copy_array(sources, physical_disks).release();
        copy->body.foreign.physicalDisks = copies;
        if (copies == nullptr && sources != nullptr) {
            LOG(Level::Error, "<--error5 %s", __func__);
        }
        for (std::uint32_t i = 0; copies != nullptr && i < physical_disks; ++i) {
            if (copy_member_name(sources[i], copies[i])) {
                LOG(Level::Trace, "Copied PD Name");
            }
            const StorageObjectRecord& disk = copies[i];
            LOG(Level::Trace, "id:%3d Size:%llu,Stae:%llu,Slot: %d ,Hotspare:%d,Name: %ls",
                disk.body.pd.id, static_cast<unsigned long long>(disk.body.pd.size),
                static_cast<unsigned long long>(disk.body.pd.state), disk.body.pd.slot,
                disk.body.pd.hotSpare, disk.NAME);
        }
    }
    LOG(Level::Trace, "<-- %s", __func__);
    return copy.release();  // to the caller, with all it points to
}
