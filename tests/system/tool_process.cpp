#include "tests/system/tool_process.h"

#include <fcntl.h>
#include <spawn.h>

namespace {

// The program with its emulator, if the machine cannot run it itself.
Lines command_of(const std::string& tool) {
    Lines command;
    std::istringstream words(VEX_EMULATOR);
    for (std::string word; words >> word;) {
        command.push_back(word);
    }
    command.push_back(std::string(VEX_TOOLS) + "/" + tool);
    return command;
}

}  // namespace

RunningTool::RunningTool(const std::string& tool, const Lines& arguments,
                         const std::string& folder) {
    static std::atomic<int> runs = 0;
    files_ = folder + "/run" + std::to_string(++runs);
    Lines command = command_of(tool);
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::vector<char*> words;
    for (std::string& word : command) {
        words.push_back(word.data());
    }
    words.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, (files_ + ".out").c_str(), kFlags,
                                     0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, (files_ + ".err").c_str(), kFlags,
                                     0600);
    const int error = posix_spawnp(&pid_, words[0], &actions, nullptr, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::runtime_error("cannot start " + command[0]);
    }
}

RunningTool::~RunningTool() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

void RunningTool::send(int signal) const {
    kill(pid_, signal);
}

ToolResult RunningTool::wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
    return {code, file_content(files_ + ".out"), file_content(files_ + ".err")};
}

ToolTest::ToolTest() {
    setenv("VEX_SHM_NAMESPACE", ("vexsystem" + std::to_string(getpid())).c_str(), 1);
    setenv("VEX_DEBUG_LOG", "none", 1);
    unsetenv("VEX_SCENARIO_DIR");
}

bool ToolTest::anything_published() {
    return vexinspect({"--json"}).output.find("\"written\": true") != std::string::npos;
}
