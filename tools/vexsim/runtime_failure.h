// Something that should have worked while a scenario played did not.
#ifndef TOOLS_VEXSIM_RUNTIME_FAILURE_H
#define TOOLS_VEXSIM_RUNTIME_FAILURE_H

#include <cstdint>
#include <stdexcept>
#include <string>

namespace vexsim {

class RuntimeFailure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Throws if a call did not return 0.
inline void expect_zero(const char* call, int64_t result) {
    if (result != 0) {
        throw RuntimeFailure(std::string(call) + " returned " + std::to_string(result));
    }
}

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_RUNTIME_FAILURE_H
