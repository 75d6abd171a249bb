#include "rt_dup.h"

#include <algorithm>
#include <bit>

#include "internal/log.h"
#include "internal/wide_text.h"
#include "rt_dup/rt_dup_parts.h"

namespace vexutils {

void copy_flat_and_name(const StorageObjectRecord& source, StorageObjectRecord& copy) {
    std::memcpy(&copy, &source, sizeof(copy));
    copy.NAME = copy_wide(source.NAME).release();
}

Owned<StorageObjectRecord> copy_named(const StorageObjectRecord& source) {
    Owned<StorageObjectRecord> copy = make_owned<StorageObjectRecord>();
    if (copy != nullptr) {
        copy_flat_and_name(source, *copy);
        copy->hdr.FQDD = copy_wide(source.hdr.FQDD).release();
    }
    return copy;
}

namespace {

constexpr std::size_t kKeyBytes = 256;        // keyId and text417, whatever the text's length
constexpr std::size_t kLongTextBytes = 256;   // text434
constexpr std::size_t kShortTextBytes = 128;  // text426, text430

std::size_t capability_count(const StorageObjectRecord& adapter) {
    const std::uint32_t mask = adapter.body.adapter.capabilityMask;
    const auto sets = static_cast<std::size_t>(std::popcount(mask));
    const std::size_t multiplier = adapter.body.adapter.capabilityMultiplier;
    return multiplier != 0 ? multiplier * sets : sets;
}

void copy_entry_texts(const StorageObjectRecord& source, StorageObjectRecord& copy) {
    for (std::size_t i = 0; i < RT_ADAPTER_ENTRIES; ++i) {
        copy.body.adapter.entries[i].text =
            copy_wide(source.body.adapter.entries[i].text).release();
    }
}

void copy_fqdd_of_version(const StorageObjectRecord& source, StorageObjectRecord& copy) {
    // Kept: a record of version 0 carries no FQDD of its own; the copy shares the source's pointer.
    if (copy.hdr.VERSION != 0) {
        copy.hdr.FQDD = copy_wide(source.hdr.FQDD).release();
    }
}

// A part of an enclosure, or the enclosure: flat but for the name and, by version, the FQDD.
std::int32_t copy_part(const StorageObjectRecord* source, StorageObjectRecord* copy) {
    if (source == nullptr || copy == nullptr) {
        return -1;
    }
    copy_flat_and_name(*source, *copy);
    copy_fqdd_of_version(*source, *copy);
    return 0;
}

// Kept: a zero one past the text's terminator and not at it; the byte between is the source's own
// terminator. The block has a byte to spare, so that a text of 255 characters has room for it.
Owned<char> copy_key(const char* source) {
    if (source == nullptr) {
        return nullptr;
    }
    Owned<char> copy = make_owned<char>(kKeyBytes + 1);
    if (copy != nullptr) {
        std::memcpy(copy.get(), source, kKeyBytes);
        copy.get()[std::min(strnlen(source, kKeyBytes) + 1, kKeyBytes)] = '\0';
    }
    return copy;
}

Owned<char> copy_text(const char* source, std::size_t size) {
    if (source == nullptr) {
        return nullptr;
    }
    Owned<char> copy = make_owned<char>(size);
    if (copy != nullptr) {
        std::memcpy(copy.get(), source, strnlen(source, size - 1));
    }
    return copy;
}

void copy_disk_words(const StorageObjectRecord& source, StorageObjectRecord& copy) {
    // Kept: without words the copy shares the source's pointer; a virtual disk's gets null.
    if (source.body.pd.wordCount != 0) {
        copy.body.pd.words = copy_array(source.body.pd.words, source.body.pd.wordCount).release();
    }
}

void copy_disk_texts(const StorageObjectRecord& source, StorageObjectRecord& copy) {
    copy.body.pd.keyId = copy_key(source.body.pd.keyId).release();
    copy.body.pd.text434 = copy_text(source.body.pd.text434, kLongTextBytes).release();
    copy.body.pd.text426 = copy_text(source.body.pd.text426, kShortTextBytes).release();
    copy.body.pd.text430 = copy_text(source.body.pd.text430, kShortTextBytes).release();
    copy.body.pd.text417 = copy_key(source.body.pd.text417).release();
}

void copy_pages(const StorageObjectRecord& source, StorageObjectRecord& copy, std::size_t pages) {
    std::memcpy(&copy, &source, sizeof(copy));
    for (std::size_t i = 0; i < pages; ++i) {
        const auto* page = static_cast<const std::uint8_t*>(source.body.smart.pages[i].page);
        copy.body.smart.pages[i].page =
            copy_array(page, source.body.smart.pages[i].length).release();
    }
}

void copy_nvme_block(const StorageObjectRecord& source, StorageObjectRecord& copy) {
    std::memcpy(&copy, &source, sizeof(copy));
    copy.body.smart.nvmeBlock =
        copy_array<std::uint8_t>(source.body.smart.nvmeBlock, RT_NVME_BLOCK_SIZE).release();
}

void copy_smart_body(const StorageObjectRecord& source, StorageObjectRecord& copy) {
    if ((source.body.smart.flags & RT_SMART_FLAG_NVME) != 0) {
        copy_nvme_block(source, copy);
    } else if (const std::size_t pages = owned_pages(source.body.smart); pages != 0) {
        copy_pages(source, copy, pages);
    }
    // Kept: for any other selector the caller's record stays as it is.
}

void copy_names_present(const StorageObjectRecord& source, StorageObjectRecord& copy) {
    if (source.NAME != nullptr) {
        copy.NAME = copy_wide(source.NAME).release();
    }
    if (source.hdr.FQDD != nullptr) {
        copy.hdr.FQDD = copy_wide(source.hdr.FQDD).release();
    }
}

}  // namespace

}  // namespace vexutils

using namespace vexutils;

StorageObjectRecord* DupAdapter(const StorageObjectRecord* src) {
    LOG(Level::Trace, "--> %s", __func__);
    if (src == nullptr) {
        LOG(Level::Error, "<--error1 %s", __func__);
        return nullptr;
    }
    Owned<StorageObjectRecord> copy = copy_named(*src);
    if (copy == nullptr) {
        LOG(Level::Error, "<--error2 %s", __func__);
        return nullptr;
    }

    copy->body.adapter.text112 = copy_wide(src->body.adapter.text112).release();
    LOG(Level::Trace, "SPDM Dst %d SRC %d", copy->body.adapter.spdm, src->body.adapter.spdm);
    LOG(Level::Trace, "PLDM Dst %d SRC %d", copy->body.adapter.pldm, src->body.adapter.pldm);
    copy_entry_texts(*src, *copy);
    const AdapterCapabilityEntry* entries = src->body.adapter.capabilities;
    const std::size_t count = capability_count(*src);
    copy->body.adapter.capabilities = copy_array(entries, count).release();
    for (std::size_t i = 0; entries != nullptr && i < count; ++i) {
        const AdapterCapabilityEntry entry = entries[i];
        LOG(Level::Trace,
            "RL %u MDR %u MDA %u DCP %u ACP %u DSS %u ASS %u BM %u DRQ %u ARLQ %u DSRL %u ASRL %u "
            "AP %u FF %u ",
            entry.rl, entry.mdr, entry.mda, entry.dcp, entry.acp, entry.dss, entry.ass, entry.bm,
            entry.drq, entry.arlq, entry.dsrl, entry.asrl, entry.ap, entry.ff);
    }
    LOG(Level::Trace, "<-- %s", __func__);
    return copy.release();  // to the caller, with all it points to
}

int32_t DupPCIeSSDAdapter(const PCIeSSDAdapterNames* src, StorageObjectRecord* dst) {
    LOG(Level::Trace, "--> %s", __func__);
    if (src == nullptr) {
        LOG(Level::Error, "<--error1 %s", __func__);
        return -1;
    }
    if (dst == nullptr) {
        LOG(Level::Error, "<--error2 %s", __func__);
        return -1;
    }

    if (src->name != nullptr) {
        dst->NAME = copy_wide(src->name).release();
    }
    if (src->FQDD != nullptr) {
        dst->hdr.FQDD = copy_wide(src->FQDD).release();
    }
    dst->body.adapter.text112 = copy_wide(L"Not Applicable").release();
    LOG(Level::Trace, "<-- %s", __func__);
    return 0;
}

int32_t rtraid_dupEnclosure(const StorageObjectRecord* src, StorageObjectRecord* dst) {
    LOG(Level::Trace, "--> %s", __func__);
    const std::int32_t result = copy_part(src, dst);
    if (result == 0) {
        LOG(Level::Trace, "DUPE-ENCLOSURE After copy NAME=%ls", dst->NAME);
    }
    LOG(Level::Trace, "<-- %s", __func__);
    return result;
}

int32_t rtraid_dupEMM(const StorageObjectRecord* src, StorageObjectRecord* dst) {
    LOG(Level::Trace, "--> %s", __func__);
    const std::int32_t result = copy_part(src, dst);
    LOG(Level::Trace, "<-- %s", __func__);
    return result;
}

int32_t rtraid_dupFAN(const StorageObjectRecord* src, StorageObjectRecord* dst) {
    LOG(Level::Trace, "--> %s", __func__);
    const std::int32_t result = copy_part(src, dst);
    LOG(Level::Trace, "<-- %s", __func__);
    return result;
}

int32_t rtraid_dupPSU(const StorageObjectRecord* src, StorageObjectRecord* dst) {
    LOG(Level::Trace, "--> %s", __func__);
    const std::int32_t result = copy_part(src, dst);
    LOG(Level::Trace, "<-- %s", __func__);
    return result;
}

int32_t rtraid_dupTEMPPROBE(const StorageObjectRecord* src, StorageObjectRecord* dst) {
    LOG(Level::Trace, "--> %s", __func__);
    const std::int32_t result = copy_part(src, dst);
    LOG(Level::Trace, "<-- %s", __func__);
    return result;
}

uint32_t rtraid_dupPD(const StorageObjectRecord* src, StorageObjectRecord* dst) {
    LOG(Level::Trace, "--> %s", __func__);
    if (src == nullptr || dst == nullptr) {
        return UINT32_MAX;
    }

    copy_flat_and_name(*src, *dst);
    LOG(Level::Trace, "Inside DUPd Func %d", __LINE__);
    copy_disk_words(*src, *dst);
    LOG(Level::Trace, "PCIeSSD hdr.FQDD=%ls NAME=%ls pDestPD->hdr.VERSION=%d", src->hdr.FQDD,
        src->NAME, dst->hdr.VERSION);
    copy_fqdd_of_version(*src, *dst);
    copy_disk_texts(*src, *dst);
    LOG(Level::Trace, "rtraid_dupPD pSrcPD->keyId = %.256s , pDestPD->keyId = %s",
        src->body.pd.keyId, dst->body.pd.keyId);
    LOG(Level::Trace, "<-- %s", __func__);
    return 0;
}

int32_t rtraid_dupSmartPD(const StorageObjectRecord* src, StorageObjectRecord* dst) {
    LOG(Level::Trace, "dupSmartPD Func %d ===>", __LINE__);
    if (src == nullptr || dst == nullptr) {
        return -1;
    }

    copy_smart_body(*src, *dst);
    copy_names_present(*src, *dst);
    LOG(Level::Trace, "dupSmartPD Func %d <===", __LINE__);
    return 0;
}

int32_t rtraid_dupNVMeSmartData(const StorageObjectRecord* src, StorageObjectRecord* dst) {
    LOG(Level::Trace, "dupSmartPD Func %d ===>", __LINE__);
    if (src == nullptr || dst == nullptr) {
        return -1;
    }

    std::memcpy(dst, src, sizeof(*dst));
    copy_names_present(*src, *dst);
    LOG(Level::Trace, "<-- %s", __func__);
    return 0;
}

AdapterKeyRecord* rtraid_DupAdapterKey(const AdapterKeyRecord* src) {
    LOG(Level::Trace, "--> %s", __func__);
    if (src == nullptr) {
        LOG(Level::Error, "<--error1 %s", __func__);
        return nullptr;
    }
    Owned<AdapterKeyRecord> copy = copy_array(src, 1);
    if (copy == nullptr) {
        LOG(Level::Error, "<--error2 %s", __func__);
        return nullptr;
    }
    LOG(Level::Trace, "<-- %s", __func__);
    return copy.release();  // to the caller
}

StorageObjectRecord* rtraid_DupBattery(const StorageObjectRecord* src) {
    LOG(Level::Trace, "--> %s", __func__);
    if (src == nullptr) {
        LOG(Level::Error, "<--error1 %s", __func__);
        return nullptr;
    }
    Owned<StorageObjectRecord> copy = copy_named(*src);
    if (copy == nullptr) {
        LOG(Level::Error, "<--error2 %s", __func__);
        return nullptr;
    }
    LOG(Level::Trace, "<-- %s", __func__);
    return copy.release();  // to the caller
}

StorageObjectRecord* rtraid_DupDriver(const StorageObjectRecord* src) {
    LOG(Level::Trace, "--> %s", __func__);
    if (src == nullptr) {
        LOG(Level::Error, "<--error1 %s", __func__);
        return nullptr;
    }
    Owned<StorageObjectRecord> copy = copy_named(*src);
    if (copy == nullptr) {
        LOG(Level::Error, "<--error2 %s", __func__);
        return nullptr;
    }
    LOG(Level::Trace, "<-- %s", __func__);
    return copy.release();  // to the caller
}

int32_t rtraid_DupVD(const StorageObjectRecord* src, StorageObjectRecord* dst) {
    LOG(Level::Trace, "--> %s", __func__);
    if (src == nullptr || dst == nullptr) {
        LOG(Level::Error, "<--error1 %s", __func__);
        return -1;
    }

    copy_flat_and_name(*src, *dst);
    dst->hdr.FQDD = copy_wide(src->hdr.FQDD).release();
    const std::uint32_t count = src->body.vd.memberCount;
    Owned<std::uint32_t> ids;
    if (count != 0) {
        ids = copy_array(src->body.vd.targetID, count);
    }
    if (ids != nullptr) {
        LOG(Level::Trace, "VD Size=%lld ", static_cast<long long>(src->body.vd.size));
        for (std::uint32_t i = 0; i < count; ++i) {
            LOG(Level::Trace, "PD targetID=%d", ids.get()[i]);
        }
    }
    dst->body.vd.targetID = ids.release();  // the copy's from here on
    LOG(Level::Trace, "<-- %s", __func__);
    return 0;
}
