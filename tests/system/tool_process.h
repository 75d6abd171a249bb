// Runs the tools the way a user does: as processes, in a namespace and a folder of the test's own.
#ifndef TESTS_SYSTEM_TOOL_PROCESS_H
#define TESTS_SYSTEM_TOOL_PROCESS_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <string>
#include <vector>

struct ToolResult {
    int status;  // exit status, 256 + signal if one ended it
    std::string output;
    std::string errors;
};

// A tool that still runs; killed at the end if it was not waited for.
class RunningTool {
  public:
    RunningTool(const std::string& tool, const std::vector<std::string>& arguments,
                const std::string& folder);
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
    ~ToolTest() override;

    ToolResult vexsim(const std::vector<std::string>& arguments) {
        return RunningTool("vexsim", arguments, folder_).wait();
    }
    ToolResult vexinspect(const std::vector<std::string>& arguments) {
        return RunningTool("vexinspect", arguments, folder_).wait();
    }

    const std::string& folder() const { return folder_; }
    std::string write_file(const std::string& name, const std::string& content) const;

    // Has anybody written a region of the test's namespace?
    bool anything_published();

  private:
    std::string folder_;
};

// Throws std::runtime_error if it cannot be read.
std::string file_content(const std::string& path);

// A file of the source tree.
std::string source_path(const std::string& name);

#endif  // TESTS_SYSTEM_TOOL_PROCESS_H
