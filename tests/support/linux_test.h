// What tests of the Linux platform share: the environment that a test gives it, child processes.
#ifndef TESTS_SUPPORT_LINUX_TEST_H
#define TESTS_SUPPORT_LINUX_TEST_H

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "tests/support/files.h"
#include "tests/support/rows.h"

using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

// Environment variables of one test, taken back at the end.
class Environment {
  public:
    ~Environment() {
        for (const std::string& name : names_) {
            unsetenv(name.c_str());
        }
    }
    void set(const std::string& name, const std::string& value) {
        setenv(name.c_str(), value.c_str(), 1);
        names_.push_back(name);
    }

  private:
    std::vector<std::string> names_;
};

// Starts a child that ends with whether its body succeeded; one that hangs fails.
inline pid_t in_child(const std::function<bool()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        _exit(body() ? 0 : 1);
    }
    return child;
}

inline bool succeeded(pid_t child) {
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

// Shared memory as nobody wrote it yet, of the platform under test.
void reset_shared_memory();

#endif  // TESTS_SUPPORT_LINUX_TEST_H
