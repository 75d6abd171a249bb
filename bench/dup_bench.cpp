// Deep copies of a disk and of an adapter, each copied and freed again.
#include <cstdlib>
#include <cstring>
#include <string>

#include "bench/bench_support.h"
#include "rt_dup.h"
#include "vexel.h"

namespace bench {

namespace {

constexpr wchar_t kName[] = L"Physical Disk 0:1:12";
constexpr wchar_t kFqdd[] = L"Disk.Bay.12:Enclosure.Internal.0-1:RAID.Slot.3-1";
constexpr unsigned kDiskWords = 16;
constexpr unsigned kCapabilities = 4;

StorageObjectRecord disk;
StorageObjectRecord adapter;
uint32_t disk_words[kDiskWords];
AdapterCapabilityEntry capabilities[kCapabilities];

wchar_t* wide(const wchar_t* text) {
    return const_cast<wchar_t*>(text);
}

char* text_buffer() {
    static char buffer[8][257];
    static int next = 0;
    char* text = buffer[next++ % 8];
    std::strcpy(text, "0123456789ABCDEF0123456789");
    return text;
}

void build() {
    disk.objType = RT_OBJ_PHYSICAL_DISK;
    disk.NAME = wide(kName);
    disk.hdr.VERSION = 1;
    disk.hdr.FQDD = wide(kFqdd);
    disk.body.pd.keyId = text_buffer();
    disk.body.pd.text417 = text_buffer();
    disk.body.pd.text426 = text_buffer();
    disk.body.pd.text430 = text_buffer();
    disk.body.pd.text434 = text_buffer();
    disk.body.pd.wordCount = kDiskWords;
    disk.body.pd.words = disk_words;
    adapter.NAME = wide(kName);
    adapter.hdr.FQDD = wide(kFqdd);
    adapter.body.adapter.text112 = wide(kName);
    for (int i = 0; i < RT_ADAPTER_ENTRIES; ++i) {
        adapter.body.adapter.entries[i].text = wide(kName);
    }
    adapter.body.adapter.capabilityMask = 0xF;
    adapter.body.adapter.capabilities = capabilities;
}

// The least: the record and each owned block allocated, filled and freed.
void copy_blocks(const std::size_t* sizes, std::size_t count) {
    static char source[512];
    void* blocks[16];
    for (std::size_t i = 0; i < count; ++i) {
        blocks[i] = std::malloc(sizes[i]);
        std::memcpy(blocks[i], source, std::min(sizes[i], sizeof(source)));
        keep(blocks[i]);
    }
    for (std::size_t i = 0; i < count; ++i) {
        std::free(blocks[i]);
    }
}

struct DiskByValue {
    char record[sizeof(StorageObjectRecord)] = {};
    std::wstring name = kName, fqdd = kFqdd;
    std::string key = std::string(256, 'x'), a = key, b = key, c = std::string(128, 'x'), d = c;
    std::basic_string<uint32_t> words{std::basic_string<uint32_t>(kDiskWords, 1)};
};

void copy_disk() {
    static StorageObjectRecord copy;
    must(rtraid_dupPD(&disk, &copy) == 0, "rtraid_dupPD");
    PhysicalDiskBody& body = copy.body.pd;
    for (void* block : {static_cast<void*>(copy.NAME), static_cast<void*>(copy.hdr.FQDD),
                        static_cast<void*>(body.keyId), static_cast<void*>(body.text417),
                        static_cast<void*>(body.text426), static_cast<void*>(body.text430),
                        static_cast<void*>(body.text434), static_cast<void*>(body.words)}) {
        vexel_free(block);
    }
}

void copy_adapter() {
    StorageObjectRecord* copy = DupAdapter(&adapter);
    must(copy != nullptr, "DupAdapter");
    vexel_free(copy->NAME);
    vexel_free(copy->hdr.FQDD);
    vexel_free(copy->body.adapter.text112);
    for (int i = 0; i < RT_ADAPTER_ENTRIES; ++i) {
        vexel_free(copy->body.adapter.entries[i].text);
    }
    vexel_free(copy->body.adapter.capabilities);
    vexel_free(copy);
}

}  // namespace

void register_dup_cases() {
    build();
    add_owing_lines(
        "duplicate_disk", [] {}, copy_disk,
        [] {
            static const std::size_t kSizes[] = {
                sizeof(kName), sizeof(kFqdd), 257, 257, 256, 128, 128, sizeof(disk_words)};
            static StorageObjectRecord copy;
            std::memcpy(&copy, &disk, sizeof(copy));
            keep(copy);
            copy_blocks(kSizes, std::size(kSizes));
        });
    static const DiskByValue by_value{};
    add(
        "duplicate_disk/peer_string_struct", [] {},
        [] {
            DiskByValue copy = by_value;
            keep(copy);
        });

    add_owing_lines(
        "duplicate_adapter", [] {}, copy_adapter,
        [] {
            constexpr std::size_t kText = sizeof(kName);
            static const std::size_t kSizes[] = {sizeof(StorageObjectRecord),
                                                 kText,
                                                 sizeof(kFqdd),
                                                 kText,
                                                 kText,
                                                 kText,
                                                 kText,
                                                 kText,
                                                 kText,
                                                 kText,
                                                 kText,
                                                 kText,
                                                 sizeof(capabilities)};
            copy_blocks(kSizes, std::size(kSizes));
        });
}

}  // namespace bench
