// The platform contract over fuzzed bytes: regions, snapshot and FRU data come from the input;
// misuse aborts.
#ifndef FUZZ_FUZZ_PLATFORM_H
#define FUZZ_FUZZ_PLATFORM_H

#include <platform/bpapi.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace fuzz {

// Bytes of the input, taken from the front; zeros once they are used up.
class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    bool empty() const { return size_ == 0; }
    std::size_t left() const { return size_; }
    std::uint8_t byte() { return number<std::uint8_t>(); }

    template <class T>
    T number() {
        T value{};
        take(&value, sizeof(value));
        return value;
    }
    void take(void* out, std::size_t count) {
        const std::size_t given = count < size_ ? count : size_;
        std::memset(out, 0, count);
        if (given != 0) {
            std::memcpy(out, data_, given);
        }
        data_ += given;
        size_ -= given;
    }

  private:
    const std::uint8_t* data_;
    std::size_t size_;
};

struct Platform {
    std::vector<std::uint8_t> regions[64];
    BpApiInfo snapshot;
    bool read_fails = false;
    std::uint32_t system_id = 0;
    std::vector<std::uint8_t> fru_info;  // 15 bytes, or empty: reads fail
    std::vector<std::uint8_t> fru_data;
    ZentBpApiCallback callback = nullptr;
    int locks_held = 0;
};
Platform& platform();

// Everything as at process start: regions zero, the trace log off.
void reset();

}  // namespace fuzz

// What libFuzzer and the replay program call.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

#endif  // FUZZ_FUZZ_PLATFORM_H
