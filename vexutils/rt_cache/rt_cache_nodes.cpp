#include "rt_cache/rt_cache_nodes.h"

#include <algorithm>

namespace vexutils {

namespace {

void free_record(StorageObjectRecord*& record) {
    rtcache_FreeRMObjects(record, 1);
    record = nullptr;
}

}  // namespace

void free_battery_and_driver(RtCacheControllerNode& node) {
    free_record(node.battery);
    free_record(node.driver);
}

void free_controller(RtCacheControllerNode* node) {
    std::ranges::replace(cache_AllEIDs, node, nullptr);
    free_record(node->adapter);
    free_battery_and_driver(*node);
    vexel_free(node->adapterKey);
    free_record(node->foreignConfig);
    vexel_free(node->pciInfo);
    vexel_free(node->extra);
    vexel_free(node);
}

void free_disk(RtCacheDiskNode*& slot) {
    if (slot->enclObj != nullptr) {
        free_record(slot->enclObj->enclType.physicalDisk.Obj);
        vexel_free(slot->enclObj);
    }
    release(slot);
}

void free_virtual_disk(RtCacheVirtualDiskNode*& slot) {
    free_record(slot->Obj);
    release(slot);
}

void free_extender(ExtenderCardInfo*& slot) {
    vexel_free(slot->FQDD);
    vexel_free(slot->name);
    release(slot);
}

void free_backplane(BpStatusInfo*& slot) {
    if (slot->backplane != nullptr) {
        slot->backplane->hdr.VERSION = 1;  // the FQDD is the record's own, whatever the version
        free_record(slot->backplane);
    }
    release(slot);
}

void free_event_data(EventData* data) {
    if (data == nullptr) {
        return;
    }
    vexel_free(data->messageId);
    vexel_free(data->messageArgs);
    vexel_free(data);
}

void free_held_data(RtCacheEventRow& list) {
    for (RtCacheEvent& event : list.events) {
        free_event_data(event.eventData);
        event.eventData = nullptr;
    }
}

void free_held_data(RtCacheDiskChangeRow& disks) {
    for (EventData*& data : disks.eventData) {
        free_event_data(data);
        data = nullptr;
    }
}

}  // namespace vexutils
