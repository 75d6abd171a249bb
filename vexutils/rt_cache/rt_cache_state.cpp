#include "rt_cache/rt_cache_state.h"

uint32_t max_adapters = 108;
uint32_t max_physicaldevices = 2048;
uint32_t max_logicaldevices = 254;
uint32_t max_enclosures_attached_to_kron = 20;
uint32_t max_pciessds = 104;
uint32_t max_pciessd_backplanes = 5;
uint32_t max_pciessd_extndrs = 16;
uint32_t backplane_drive_thermalpoll_interval = 10;
uint32_t insight_drive_thermalpoll_interval = 60;

StorageEIDTable cache_StorageEIDInfo;
uint8_t sIDToValueMap[RTCACHE_ID_MAP_SIZE];
SMMutexHandle mutexRtCache;

RtCacheControllerNode* cache_AllEIDs[RTCACHE_EID_SLOTS];
RtCacheDiskNode*** cache_PDs;
RtCacheVirtualDiskNode*** cache_VDs;
BpStatusInfo* cache_Bkplanes[RTCACHE_BACKPLANE_SLOTS];
ExtenderCardInfo* cache_Extndrs[RTCACHE_EXTENDER_SLOTS];
void* cache_CMDsCount[RTCACHE_EID_SLOTS];

RtCacheEventRow* cache_Events;
RtCacheDiskChangeRow* cache_Events_PD_ChObj;
RtCacheDelayedRow* cache_Events_delayed;
RtCacheDelayedBitmap* cache_Events_PD_ChObj_delayed;

namespace vexutils {

constinit CacheSizes cache_sizes;

}  // namespace vexutils
