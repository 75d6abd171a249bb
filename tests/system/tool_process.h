// Runs the tools the way a user does: as processes, in a namespace and a folder of the test's own.
#ifndef TESTS_SYSTEM_TOOL_PROCESS_H
#define TESTS_SYSTEM_TOOL_PROCESS_H

#include "tests/support/linux_test.h"

struct ToolResult {
    int status;  // exit status, 256 + signal if one ended it
    std::string output;
    std::string errors;
};

// A tool that still runs; killed at the end if it was not waited for.
class RunningTool {
  public:
    RunningTool(const std::string& tool, const Lines& arguments, const std::string& folder);
    ~RunningTool();
    RunningTool(const RunningTool&) = delete;
    RunningTool& operator=(const RunningTool&) = delete;

    void send(int signal) const;
    ToolResult wait();

  private:
    pid_t pid_ = -1;
    std::string files_;  // beginning of the names of its output files
};

class ToolTest : public testing::Test {
  protected:
    ToolTest();
    ~ToolTest() override { vexsim({"--cleanup"}); }

    ToolResult vexsim(const Lines& arguments) {
        return RunningTool("vexsim", arguments, folder()).wait();
    }
    ToolResult vexinspect(const Lines& arguments) {
        return RunningTool("vexinspect", arguments, folder()).wait();
    }

    std::string folder() const { return dir_ / "."; }
    std::string write_file(const std::string& name, const std::string& content) const {
        ::write_file(dir_ / name, content);
        return dir_ / name;
    }

    // Has anybody written a region of the test's namespace?
    bool anything_published();

  private:
    TempDir dir_;
};

// A file of the source tree.
inline std::string source_path(const std::string& name) {
    return VEX_SOURCE "/" + name;
}

#endif  // TESTS_SYSTEM_TOOL_PROCESS_H
