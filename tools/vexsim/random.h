// Numbers that look random and are the same on every machine.
#ifndef TOOLS_VEXSIM_RANDOM_H
#define TOOLS_VEXSIM_RANDOM_H

#include <cstdint>

namespace vexsim {

class Random {
  public:
    explicit Random(uint64_t seed) : state_(seed) {}

    // From low to high, both included.
    int between(int low, int high) {
        const auto span = static_cast<uint64_t>(high - low) + 1;
        return low + static_cast<int>(next() % span);
    }

  private:
    // Weyl sequence with a mixing step; the constants are odd with well spread bits.
    uint64_t next() {
        state_ += 0x9E3779B97F4A7C15u;
        uint64_t mixed = state_;
        mixed = (mixed ^ (mixed >> 30u)) * 0xBF58476D1CE4E5B9u;
        mixed = (mixed ^ (mixed >> 27u)) * 0x94D049BB133111EBu;
        return mixed ^ (mixed >> 31u);
    }

    uint64_t state_;
};

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_RANDOM_H
