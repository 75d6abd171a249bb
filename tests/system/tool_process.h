// Runs the tools the way a user does: as processes, in a namespace and a folder of the test's own.
#ifndef TESTS_SYSTEM_TOOL_PROCESS_H
#define TESTS_SYSTEM_TOOL_PROCESS_H

#include "tests/support/linux_test.h"

struct ToolResult {
    int status;  // exit status, 256 + signal if one ended it
    std::string output;
    std::string errors;
};

class ToolTest : public testing::Test {
  protected:
    ToolTest() {
        environment.set("VEX_SHM_NAMESPACE", "vexsystem" + std::to_string(getpid()));
        environment.set("VEX_DEBUG_LOG", "none");
    }
    ~ToolTest() override { vexsim("--cleanup"); }

    // Starts a tool with what a shell makes of its arguments.
    pid_t start(const std::string& command) const {
        const std::string files = dir / "$$";  // the shell's process becomes the tool's
        const std::string line = "exec " VEX_EMULATOR " " VEX_TOOLS "/" + command + " >" + files +
                                 " 2>" + files + ".err";
        return in_child([&] { return execl("/bin/sh", "sh", "-c", line.c_str(), nullptr) == 0; });
    }
    ToolResult wait(pid_t tool) const {
        int status = 0;
        waitpid(tool, &status, 0);
        const std::string files = dir / std::to_string(tool);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status),
                file_content(files), file_content(files + ".err")};
    }
    ToolResult vexsim(const std::string& arguments) const {
        return wait(start("vexsim " + arguments));
    }
    ToolResult vexinspect(const std::string& arguments) const {
        return wait(start("vexinspect " + arguments));
    }

    // Has anybody written a region of the test's namespace?
    bool anything_published() const {
        return vexinspect("--json").output.find("\"written\": true") != std::string::npos;
    }

    TempDir dir;
    Environment environment;
};

// A file of the source tree.
inline std::string source_path(const std::string& name) {
    return VEX_SOURCE "/" + name;
}

#endif  // TESTS_SYSTEM_TOOL_PROCESS_H
