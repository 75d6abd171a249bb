#include <algorithm>
#include <cwchar>
#include <span>

#include "internal/log.h"
#include "internal/owned.h"
#include "rt_sync.h"

void* g_hybridJobData;

namespace vexutils {
namespace {

constexpr std::uint32_t kEidMask = 0xFF;

HybridJobData* installed() {
    return static_cast<HybridJobData*>(g_hybridJobData);
}

std::span<HybridJobInfo*> entries(const HybridJobData& data) {
    return {data.hybridJobInfo, static_cast<std::size_t>(std::max(data.count, 0))};
}

// Kept: the text is taken as a format, so "%%" is one "%"; there is nothing else to convert.
Owned<wchar_t> copy_fqdd(const wchar_t* text) {
    if (text == nullptr) {
        return nullptr;
    }
    Owned<wchar_t> copy = make_owned<wchar_t>(RTSYNC_JOB_FQDD_CHARACTERS);
    if (copy == nullptr) {
        return nullptr;
    }
    for (std::size_t i = 0; i + 1 < RTSYNC_JOB_FQDD_CHARACTERS && *text != L'\0'; ++i) {
        copy.get()[i] = *text;
        text += text[0] == L'%' && text[1] == L'%' ? 2 : 1;
    }
    return copy;
}

HybridJobInfo* new_entry(const wchar_t* fqdd) {
    auto* entry = make_owned<HybridJobInfo>().release();
    if (entry != nullptr) {
        entry->FQDD = copy_fqdd(fqdd).release();
    }
    return entry;
}

// A list of entries bound to no endpoint; null without memory. Freed with freeHybridData.
HybridJobData* new_list(std::span<const wchar_t* const> fqdds) {
    Owned<HybridJobData> data = make_owned<HybridJobData>();
    Owned<HybridJobInfo*> table = make_owned<HybridJobInfo*>(fqdds.size());
    if (data == nullptr || table == nullptr) {
        return nullptr;
    }
    std::ranges::transform(fqdds, table.get(), new_entry);
    data->count = static_cast<int32_t>(fqdds.size());
    data->hybridJobInfo = table.release();
    return data.release();
}

void bind(HybridJobInfo& entry, std::uint8_t eid) {
    entry.ctrId = (entry.ctrId & ~kEidMask) | eid;
}

// An empty text would occur in every other; it matches nothing.
bool addresses(const HybridJobInfo& entry, const wchar_t* fqdd) {
    return fqdd != nullptr && entry.FQDD != nullptr && entry.FQDD[0] != L'\0' &&
           std::wcsstr(fqdd, entry.FQDD) != nullptr;
}

bool is_boot_storage(const HybridJobInfo& entry) {
    return entry.FQDD != nullptr &&
           (std::wcsncmp(entry.FQDD, L"TAVI", 4) == 0 || std::wcsncmp(entry.FQDD, L"ROR", 3) == 0);
}

}  // namespace
}  // namespace vexutils

using namespace vexutils;

void updateNotifFQDD(int32_t count, const wchar_t** fqdds) {
    LOG(Level::Trace, "%s", "--> entry");
    if (count < 1) {
        LOG(Level::Trace, "%s", "FQDD count 0. FILTERING DISABLED");
        LOG(Level::Fatal, "<-- %s Exit", __func__);
        return;
    }
    LOG(Level::Trace, "FQDD count %d", count);
    HybridJobData* data =
        fqdds != nullptr ? new_list({fqdds, static_cast<std::size_t>(count)}) : nullptr;
    if (data == nullptr) {
        LOG(Level::Error, "%s", fqdds == nullptr ? "<-- err null inputs" : "<-- err no memory");
        return;
    }

    LOG(Level::Trace, "%s", "Going to update g_hybridJobData");
    if (g_hybridJobData != nullptr) {
        freeHybridData(&g_hybridJobData);
    }
    g_hybridJobData = data;  // until freeHybridData
    LOG(Level::Trace, "Going to print %d FQDD in Notif", count);
    LOG(Level::Trace, "g_hybridJobData->count = %d", data->count);
    for (int i = 0; i < count; ++i) {
        const HybridJobInfo* entry = data->hybridJobInfo[i];
        if (entry == nullptr) {
            LOG(Level::Trace, "g_hybridJobData->hybridJobInfo[%d] is NULL", i);
            continue;
        }
        if (entry->FQDD == nullptr) {
            LOG(Level::Trace, "g_hybridJobData->hybridJobInfo[%d]->FQDD is NULL", i);
        }
        LOG(Level::Trace, "After update ctrId %d", static_cast<int>(entry->ctrId));
    }
    LOG(Level::Fatal, "<-- %s Exit", __func__);
}

uint32_t isFQDDEIDPresent(const wchar_t* fqdd, uint8_t eid, uint32_t byId) {
    LOG(Level::Trace, "%s", "--> entry");
    if (g_hybridJobData == nullptr) {
        LOG(Level::Trace, "%s", "Filtering on FQDD Disabled");
        return 1;
    }
    LOG(Level::Fatal, "FQDD count in g_hybridJobData %d", installed()->count);
    if (installed()->count < 1) {
        return 1;
    }

    int index = -1;
    for (HybridJobInfo* entry : entries(*installed())) {
        ++index;
        if (entry == nullptr) {
            continue;
        }
        if (byId != 0) {
            if ((entry->ctrId & kEidMask) == eid) {
                LOG(Level::Trace, "Adapter ID [%d] FOUND at index %d", eid, index);
                return 1;
            }
            continue;
        }
        LOG(Level::Trace, "Adapter FQDD [%ls] ID %d at index %d", entry->FQDD,
            static_cast<int>(entry->ctrId), index);
        if (addresses(*entry, fqdd)) {
            bind(*entry, eid);
            LOG(Level::Trace, "Adapter FQDD [%ls] id %d FOUND at index %d", entry->FQDD, eid,
                index);
            return 1;
        }
    }
    LOG(Level::Trace, "Adapter FQDD [%ls] NOT found", fqdd);
    return 0;
}

uint32_t isTAVIFQDDEIDPresent(uint8_t) {
    if (g_hybridJobData == nullptr) {
        LOG(Level::Trace, "%s", "Filtering on FQDD Disabled");
        return 1;
    }
    if (installed()->count < 1) {
        return 1;
    }

    LOG(Level::Fatal, "FQDD count in g_hybridJobData %d", installed()->count);
    int index = -1;
    for (HybridJobInfo* entry : entries(*installed())) {
        ++index;
        if (entry == nullptr) {
            continue;
        }
        LOG(Level::Trace, "Adapter FQDD [%ls] ID %d at index %d", entry->FQDD,
            static_cast<int>(entry->ctrId), index);
        if (is_boot_storage(*entry)) {
            bind(*entry, 0);  // Kept: not to the endpoint that was asked for.
            LOG(Level::Fatal, "Adapter FQDD [%ls] id %d FOUND at index %d", entry->FQDD, 0, index);
            break;
        }
    }
    return 1;
}

void freeHybridData(void** data) {
    auto* list = data != nullptr ? static_cast<HybridJobData*>(*data) : nullptr;
    if (list != nullptr) {
        int index = 0;
        for (HybridJobInfo*& entry : entries(*list)) {
            if (entry != nullptr && entry->FQDD != nullptr) {
                LOG(Level::Trace, "Free Adapter FQDD [%ls] FOUND at index %d", entry->FQDD, index);
                vexel_free(entry->FQDD);
            }
            vexel_free(entry);
            entry = nullptr;
            ++index;
        }
        vexel_free(list->hybridJobInfo);
        vexel_free(list);
        *data = nullptr;
    }
    LOG(Level::Trace, "<-- %s Exit", __func__);
}
