#include "vexsim/fru_image.h"

namespace vexsim {

namespace {

constexpr size_t kMaxName = 63;  // what the length of a field can say
constexpr size_t kUnit = 8;      // areas are counted in it
constexpr uint8_t kTextField = 0xC0;
constexpr uint8_t kNoMoreFields = 0xC1;

// Bytes whose sum is 0 with the last of them.
std::vector<uint8_t> with_checksum(std::vector<uint8_t> bytes) {
    uint8_t sum = 0;
    for (const uint8_t byte : bytes) {
        sum = static_cast<uint8_t>(sum + byte);
    }
    bytes.push_back(static_cast<uint8_t>(-sum));
    return bytes;
}

}  // namespace

std::vector<uint8_t> fru_image(const std::string& name) {
    const std::string text = name.substr(0, kMaxName);
    std::vector<uint8_t> area = {1, 0, 25, 0, 0, 0, kTextField + 3, 'V', 'E', 'X'};
    area.push_back(static_cast<uint8_t>(kTextField + text.size()));
    area.insert(area.end(), text.begin(), text.end());
    area.push_back(kNoMoreFields);
    area.resize((area.size() + kUnit) / kUnit * kUnit - 1);  // the checksum ends the last unit
    area[1] = static_cast<uint8_t>((area.size() + 1) / kUnit);
    area = with_checksum(std::move(area));
    std::vector<uint8_t> image = with_checksum({1, 0, 0, 1, 0, 0, 0});  // the board area at 8
    image.insert(image.end(), area.begin(), area.end());
    return image;
}

}  // namespace vexsim
