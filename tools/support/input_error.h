// A fault in a file that the user wrote: where it is and what was expected there.
#ifndef TOOLS_SUPPORT_INPUT_ERROR_H
#define TOOLS_SUPPORT_INPUT_ERROR_H

#include <stdexcept>
#include <string>

#include "platform/linux/json_lines.h"

namespace vextools {

class InputError : public std::runtime_error {
  public:
    // The fault of a file as a whole.
    InputError(const std::string& file, const std::string& what)
        : std::runtime_error(file + ": " + what) {}
    // The fault of a line in it, which the error names.
    InputError(const std::string& file, const vexplatform::JsonError& error)
        : std::runtime_error(file + ":" + error.what()) {}
};

}  // namespace vextools

#endif  // TOOLS_SUPPORT_INPUT_ERROR_H
