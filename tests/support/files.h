// Files of a test.
#ifndef TESTS_SUPPORT_FILES_H
#define TESTS_SUPPORT_FILES_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// A new folder, removed with all its files at the end.
class TempDir {
  public:
    TempDir() {
        std::string name = testing::TempDir() + "vex-test-XXXXXX";
        path_ = mkdtemp(name.data()) != nullptr ? name : "/nonexistent";
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;

    std::string operator/(const std::string& name) const { return path_ + '/' + name; }

  private:
    std::string path_;
};

inline std::string file_content(const std::string& path) {
    std::ifstream stream{path, std::ios::binary};
    return {std::istreambuf_iterator<char>{stream}, {}};
}

inline void write_file(const std::string& path, const std::string& content) {
    std::ofstream{path, std::ios::binary} << content;
}

#endif  // TESTS_SUPPORT_FILES_H
