// fuzz_replay CORPUS: runs every target over its stored inputs, as a test on machines without
// libFuzzer. fuzz_replay CORPUS STEP: runs the targets that read a format over its input "seed"
// broken in every way, of which each STEP-th is tried.
#include <bit>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#include "fuzz/fuzz.h"

namespace {

using fuzz::Bytes;
using fuzz::Header;
using fuzz::Target;

Bytes content(const std::filesystem::path& path) {
    std::ifstream file{path, std::ios::binary};
    const Bytes read{std::istreambuf_iterator<char>{file}, {}};
    return {read.begin(), read.end()};  // without a byte to spare
}

int replay(const Target& target, const std::filesystem::path& folder) {
    int inputs = 0;
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator{folder, none}) {
        Bytes input = content(entry);
        fuzz::run(target, input.data(), input.size());
        if (!input.empty()) {
            input[offsetof(Header, lines)] = fuzz::kFormatLines;
            fuzz::run(target, input.data(), input.size());
        }
        ++inputs;
    }
    std::printf("figures: R3 replay target=%s inputs=%d\n", target.name, inputs);
    return inputs;
}

// Runs a target on variants of an input, all but each STEP-th left out.
class Breaker {
  public:
    Breaker(const Target& target, Bytes seed, int step)
        : target_(target), seed_(std::move(seed)), step_(step) {}

    int every_way() {
        for (std::size_t size = fuzz::kFormatAt; size <= seed_.size(); ++size) {
            run({seed_.begin(), seed_.begin() + static_cast<std::ptrdiff_t>(size)});
        }
        for (std::size_t at = fuzz::kFormatAt; at < seed_.size(); ++at) {
            for (int bit = 0; bit < 8; ++bit) {
                run_with(at, static_cast<std::uint8_t>(seed_[at] ^ (1 << bit)));
            }
            for (const std::uint8_t value : Bytes{0x00, 0x7F, 0x80, 0xFF}) {
                if (std::popcount(static_cast<std::uint8_t>(seed_[at] ^ value)) > 1) {
                    run_with(at, value);
                }
            }
            run_changing(at);
        }
        for (const std::uint8_t shift : Bytes{1, 2, 3}) {
            run_with(offsetof(Header, shift), shift);
        }
        return runs_;
    }

  private:
    void run(const Bytes& input) {
        if (turn_++ % step_ == 0) {
            fuzz::run(target_, input.data(), input.size());
            ++runs_;
        }
    }
    void run_with(std::size_t at, std::uint8_t value) {
        const std::uint8_t before = std::exchange(seed_[at], value);
        run(seed_);
        seed_[at] = before;
    }
    // Each read finds another value of the byte than the one before.
    void run_changing(std::size_t at) {
        Bytes input = seed_;
        const auto position = static_cast<std::uint16_t>(at - fuzz::kFormatAt);
        std::memcpy(&input[offsetof(Header, position)], &position, sizeof(position));
        input[offsetof(Header, changed)] = 0xFF;
        run(input);
    }

    const Target& target_;
    Bytes seed_;
    const int step_;
    int turn_ = 0, runs_ = 0;
};

int corrupt(const Target& target, const std::filesystem::path& folder, int step) {
    const auto start = std::chrono::steady_clock::now();
    Bytes seed = content(folder / "seed");
    if (seed.size() < fuzz::kFormatAt) {
        return 0;
    }
    const int runs = Breaker{target, std::move(seed), step}.every_way();
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
    std::printf("figures: R4 target=%s parses=%d seconds=%.1f\n", target.name, runs, spent.count());
    return runs;
}

}  // namespace

int main(int argc, char** argv) {
    int failed = argc < 2 ? 1 : 0;
    for (const Target* target : argc < 2 ? std::vector<const Target*>{} : fuzz::targets()) {
        const auto folder = std::filesystem::path{argv[1]} / target->name;
        if (argc == 2) {
            failed += replay(*target, folder) == 0 ? 1 : 0;
        } else if (target->format != nullptr) {
            failed += corrupt(*target, folder, std::max(std::atoi(argv[2]), 1)) == 0 ? 1 : 0;
        }
    }
    return failed == 0 ? 0 : 1;
}
