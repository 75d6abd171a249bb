// fuzz_replay CORPUS: runs every target over its stored inputs, as a test on machines without
// libFuzzer, and compares what they are answered with CORPUS/../answers. fuzz_replay CORPUS STEP:
// runs the targets that read a format over its input "seed" broken in every way, of which each
// STEP-th is tried. fuzz_replay CORPUS TARGET/INPUT: prints what becomes of one.
#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>
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

// What each stored input is answered: a digest of its story, by "target/input". Structures with
// pointers, and with them the inputs' meaning, are those of 32-bit machines.
class Answers {
  public:
    explicit Answers(std::filesystem::path file) : file_(std::move(file)) {
        std::ifstream stored{file_};
        for (std::string name, digest; stored >> name >> digest;) {
            stored_[name] = digest;
        }
    }

    // Whether the story is the stored one; with VEX_TEST_RECORD it becomes that.
    bool are(const std::string& name, std::string_view story) {
        std::uint64_t digest = 0xCBF29CE484222325;  // FNV-1a
        for (const char character : story) {
            digest = (digest ^ static_cast<std::uint8_t>(character)) * 0x100000001B3;
        }
        char text[17];
        std::snprintf(text, sizeof(text), "%016llx", static_cast<unsigned long long>(digest));
        const std::string before = std::exchange(stored_[name], text);
        const bool same = sizeof(void*) != 4 || before == text || kRecord;
        if (!same) {
            std::printf(
                "%s is answered otherwise: %s, stored %s; for the answers before and after "
                "the change: fuzz_replay CORPUS %s\n",
                name.c_str(), text, before.c_str(), name.c_str());
        }
        return same;
    }
    void record() const {
        std::ofstream recorded{kRecord ? file_ : "/dev/null"};
        for (const auto& [name, digest] : stored_) {
            recorded << name << ' ' << digest << '\n';
        }
    }

  private:
    static inline const bool kRecord = std::getenv("VEX_TEST_RECORD") != nullptr;
    const std::filesystem::path file_;
    std::map<std::string, std::string> stored_;
};

// Of inputs whose bytes are the same in each run.
std::string random_stories(const Target& target) {
    const unsigned inputs = target.structures != nullptr ? 128 : 32;  // programs end well
    std::mt19937 random{1};
    std::string story;
    for (unsigned i = 0; i < inputs; ++i) {
        Bytes input(sizeof(Header) + 16 * i);
        std::ranges::generate(input, [&] { return static_cast<std::uint8_t>(random() >> 8); });
        input[offsetof(Header, changed)] = 0;
        for (const std::size_t fault : {offsetof(Header, allocation), offsetof(Header, call)}) {
            input[fault] = static_cast<std::uint8_t>(input[fault] < 64 ? input[fault] / 8 : 0);
        }
        fuzz::run(target, input.data(), input.size(), &story);
    }
    return story;
}

// Returns how many inputs were not answered as stored; a target without inputs counts as one.
int replay(const Target& target, const std::filesystem::path& folder, Answers& answers) {
    std::error_code none;
    const std::set<std::filesystem::path> inputs{std::filesystem::directory_iterator{folder, none},
                                                 {}};
    int otherwise = inputs.empty() ? 1 : 0;
    for (const auto& path : inputs) {
        const Bytes input = content(path);
        fuzz::run(target, input.data(), input.size());
        std::string story;
        fuzz::run(target, input.data(), input.size(), &story);
        otherwise += answers.are(target.name / path.filename(), story) ? 0 : 1;
    }
    otherwise += answers.are(target.name + std::string{"/random"}, random_stories(target)) ? 0 : 1;
    std::printf("figures: R3 replay target=%s inputs=%zu\n", target.name, inputs.size());
    return otherwise;
}

// Runs a target on variants of an input, all but each STEP-th left out. Of few the story is told.
class Breaker {
  public:
    static constexpr int kTold = 64;
    Breaker(const Target& target, Bytes seed, int step)
        : target_(target), seed_(std::move(seed)), step_(step) {}

    const std::string& story() const { return story_; }

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
        if (turn_ % step_ == 0) {
            fuzz::run(target_, input.data(), input.size(), turn_ % kTold == 0 ? &story_ : nullptr);
            ++runs_;
        }
        ++turn_;
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
    std::string story_;
};

// Returns how many seeds were not answered as stored.
int corrupt(const Target& target, const std::filesystem::path& folder, int step, Answers& answers) {
    const auto start = std::chrono::steady_clock::now();
    Bytes seed = content(folder / "seed");
    if (seed.size() < fuzz::kFormatAt) {
        return 1;
    }
    Breaker breaker{target, std::move(seed), step};
    const int runs = breaker.every_way();
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
    std::printf("figures: R4 target=%s parses=%d seconds=%.1f\n", target.name, runs, spent.count());
    const bool all_told = Breaker::kTold % step == 0;
    return !all_told || answers.are(std::string{target.name} + "/seed,broken", breaker.story()) ? 0
                                                                                                : 1;
}

// Prints what becomes of an input, up to where it fails, or of those that are made. Returns whether
// there is one.
bool tell(const Target& target, const std::filesystem::path& corpus, const std::string& name) {
    const std::string own = target.name + std::string{"/"};
    const Bytes input = content(corpus / name);
    std::string story;
    if (name == own + "random") {
        story = random_stories(target);
    } else if (name == own + "seed,broken" && target.format != nullptr) {
        Breaker breaker{target, content(corpus / target.name / "seed"), 1};
        breaker.every_way();
        story = breaker.story();
    } else if (input.empty() || !name.starts_with(own)) {
        return false;
    } else {
        try {
            fuzz::run(target, input.data(), input.size(), &story);
        } catch (const std::exception&) {
            story += "failed\n";
        }
    }
    std::fputs(story.c_str(), stdout);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs("usage: fuzz_replay CORPUS [STEP | TARGET/INPUT]\n", stderr);
        return 2;
    }
    const std::filesystem::path corpus = argv[1];
    const std::string what = argc == 2 ? "" : argv[2];
    const int step = std::atoi(what.c_str());
    Answers answers{corpus / "../answers"};
    int failed = 0, told = 0;
    for (const Target* target : fuzz::targets()) {
        if (what.empty()) {
            failed += replay(*target, corpus / target->name, answers);
        } else if (step == 0) {
            told += tell(*target, corpus, what) ? 1 : 0;
        } else if (target->format != nullptr) {
            failed += corrupt(*target, corpus / target->name, step, answers);
        }
    }
    answers.record();
    return failed == 0 && (told != 0 || what.empty() || step != 0) ? 0 : 1;
}
