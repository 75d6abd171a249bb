// Names of the numbers that stand in records and regions, for scenario files and for tables alike.
// The endpoint types and the NVMe protocol code are the library's; the other drive codes belong to
// the daemon, which vexsim is: they are chosen here.
#ifndef TOOLS_SUPPORT_CODES_H
#define TOOLS_SUPPORT_CODES_H

#include <cstdint>
#include <span>

namespace vextools {

struct NamedCode {
    const char* name;
    int64_t code;
};

inline constexpr NamedCode kEndpointTypes[] = {
    {"kron", 1}, {"kron-18", 18}, {"hba", 10}, {"controller-12", 12}, {"boot-card", 17},
};

inline constexpr NamedCode kProtocols[] = {
    {"sata", 1},
    {"sas", 2},
    {"nvme", 0x100},
};

// Of a drive's record, whose bit 1 is published.
inline constexpr NamedCode kMedia[] = {{"hdd", 1}, {"ssd", 2}};

// As people read them: the published protocol is the code's low byte, the published media that bit.
inline constexpr NamedCode kProtocolTitles[] = {{"NVMe", 0}, {"SATA", 1}, {"SAS", 2}};
inline constexpr NamedCode kMediaTitles[] = {{"HDD", 0}, {"SSD", 1}};
inline constexpr int64_t kMediaTape = 2;

inline constexpr NamedCode kFormFactors[] = {{"1.8", 1}, {"2.5", 2}, {"3.5", 3}, {"m.2", 4}};

// Published as their low 16 bits.
inline constexpr NamedCode kDriveStates[] = {
    {"offline", 0}, {"online", 1}, {"rebuilding", 3}, {"failed", 4}};

// Inventory states of an endpoint: the daemon's, two of which the library tests.
inline constexpr NamedCode kInventoryStates[] = {
    {"none", 0}, {"running", 1}, {"done", 2}, {"partial", 3}};

inline constexpr NamedCode kBatteryStates[] = {
    {"unknown", 0}, {"ready", 1}, {"charging", 2}, {"failed", 4}};

// Results of commands, and what becomes of the communication with a controller.
inline constexpr NamedCode kCommandResults[] = {
    {"success", 0}, {"failed", 1}, {"reset", 4}, {"clear-count", 5}};
inline constexpr NamedCode kCommunicationStates[] = {{"not known", 0}, {"lost", 1}, {"good", 3}};

// The name of a code, null if it has none.
constexpr const char* name_of(std::span<const NamedCode> names, int64_t code) {
    for (const NamedCode& named : names) {
        if (named.code == code) {
            return named.name;
        }
    }
    return nullptr;
}

}  // namespace vextools

#endif  // TOOLS_SUPPORT_CODES_H
