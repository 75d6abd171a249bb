// What the targets share: the bytes of an input, values drawn from them, and the list of targets.
//
// An input is a Header and what the target takes: either structures of its own making, or a format
// that others write, with the arguments of the calls in front.
#ifndef FUZZ_FUZZ_H
#define FUZZ_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "tests/support/fake_platform.h"

namespace fuzz {

using Bytes = std::vector<std::uint8_t>;

#pragma pack(push, 1)
struct Header {
    std::uint8_t lines;       // 0xA5: they are formatted, which costs more than all else
    std::uint8_t shift;       // 0 to 3: distance of buffers from an aligned address
    std::uint8_t changed;     // bits of a byte of the format that change between two reads
    std::uint8_t allocation;  // of an operation that fails, from 1; of others 0
    std::uint16_t position;   // which byte
    std::uint8_t call;        // to the platform that fails, as allocation
    std::uint8_t rsvd7;
};
#pragma pack(pop)
inline constexpr std::uint8_t kFormatLines = 0xA5;
inline constexpr std::size_t kArgumentBytes = 56;  // in front of a format
inline constexpr std::size_t kFormatAt = sizeof(Header) + kArgumentBytes;

class Input {
  public:
    enum class AtEnd { Zeros, Again };
    Input(const std::uint8_t* data, std::size_t size, unsigned address_shift, AtEnd at_end)
        : shift(address_shift), data_(data), size_(size), at_end_(at_end) {}

    const unsigned shift;
    std::size_t left() const { return size_ - at_; }

    // The next bytes; behind the end zeros, or the input again in another guise.
    void take(void* room, std::size_t count);
    // As take, for memory that the library reads as others wrote it.
    void fill(void* room, std::size_t count);
    Bytes bytes(std::size_t count);

    std::uint32_t below(std::uint32_t end) {
        return end <= 256 ? raw<std::uint8_t>() % end : raw<std::uint32_t>() % end;
    }
    // A number, more often than not one at a limit.
    std::uint32_t number();
    // Pieces of FQDDs, formats, numbers.
    std::string text();
    std::wstring wide_text();

    // Any value of a type; of a pointer, one element of its own, or a text; now and then null.
    template <class T>
    T any() {
        if constexpr (std::is_pointer_v<T>) {
            if (below(16) == 15) {
                return nullptr;
            }
        }
        if constexpr (std::is_same_v<T, const char*>) {
            const std::string drawn = text();
            return reinterpret_cast<const char*>(
                keep({drawn.c_str(), drawn.c_str() + drawn.size() + 1}));
        } else if constexpr (std::is_pointer_v<T>) {
            return static_cast<T>(static_cast<void*>(keep(bytes(sizeof(*T{})))));
        } else {
            return static_cast<T>(number());
        }
    }
    // Keeps a block while the input is in use, without a byte to spare.
    std::uint8_t* keep(Bytes block) { return kept_.emplace_back(std::move(block)).data(); }
    // Tells what the blocks hold that were kept since the last time.
    void tell_kept();

  private:
    template <class T>
    T raw() {
        T value{};
        take(&value, sizeof(value));
        return value;
    }

    const std::uint8_t* data_;
    std::size_t size_, at_ = 0, past_ = 0;
    AtEnd at_end_;
    std::deque<Bytes> kept_;
    std::size_t told_ = 0;  // of them
};

// While one lives, the header's allocation and call fail.
class Failures {
  public:
    Failures();
    ~Failures();
    // Whether one did.
    bool happened() const;

  private:
    fake::AllocationScope scope_;
};

// The same characters on every machine, whether or not its char has a sign.
std::wstring widened(const std::string& narrow);

// One kind of input, known to the fuzzer and to the replay by its name.
struct Target {
    using Structures = void (*)(Input& input);
    using Format = void (*)(Input& arguments, Input& format);
    Target(const char* name, Structures run);
    Target(const char* name, Format run);

    const char* const name;
    const Structures structures = nullptr;
    const Format format = nullptr;  // what is broken in every way by the replay
};
const std::vector<const Target*>& targets();

// Runs a target on an input, over a fresh platform; aborts on a failed expectation, on a lock still
// held and on a block, a session or a mutex that stays. Appends to a story, where one is given,
// what became of it: results, what calls filled, what reached the platform, lines.
void run(const Target& target, const std::uint8_t* data, std::size_t size,
         std::string* story = nullptr);

// Whether somebody wants to know.
bool listens();
// For targets: a line of the story, behind the log lines so far. Cheap where nobody listens.
void tell(const char* what, std::uint64_t value);
void tell(const char* what, const void* bytes, std::size_t count);

}  // namespace fuzz

#endif  // FUZZ_FUZZ_H
