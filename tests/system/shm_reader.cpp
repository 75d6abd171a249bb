// shm_reader READS: reads the sections in turn, at least so often and until one read in a hundred
// met a new write; prints the number of reads, and how many of them failed, were of more than one
// write, were older than the one before, and were newer than the one before.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "platform/shm.h"
#include "tests/system/shm_section.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    alarm(200);  // a reader that starves fails
    static SectionBytes bytes;
    std::array<uint32_t, kSections.size()> last{};
    int failed = 0, torn = 0, older = 0, newer = 0;
    const int least = static_cast<int>(strtol(argv[1], nullptr, 10));
    int reads = 0;
    for (; reads < least || newer < least / 100; ++reads) {
        const size_t turn = static_cast<size_t>(reads) % kSections.size();
        const Section& section = kSections[turn];
        failed += Zent_shm_memread(kSectionRegion, bytes.data(), section.offset, section.size) != 0;
        torn += !section_whole(bytes, section.size);
        const uint32_t number = section_number(bytes);
        older += number < last[turn];
        newer += number > last[turn];
        last[turn] = number;
    }
    printf("%d %d %d %d %d\n", reads, failed, torn, older, newer);
    return 0;
}
