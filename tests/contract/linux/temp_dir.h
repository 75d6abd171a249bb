/*
 * temp_dir.h - a folder for one test, and the environment that the test gives the platform.
 */
#ifndef TESTS_CONTRACT_LINUX_TEMP_DIR_H
#define TESTS_CONTRACT_LINUX_TEMP_DIR_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

/* A new folder, removed with all its files at the end. */
class TempDir {
  public:
    TempDir() {
        std::string name = (std::filesystem::temp_directory_path() / "vex-test-XXXXXX").string();
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

/* Environment variables of one test, taken back at the end. */
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

inline std::string file_content(const std::string& path) {
    std::ifstream stream{path, std::ios::binary};
    return {std::istreambuf_iterator<char>{stream}, {}};
}

inline void write_file(const std::string& path, const std::string& content) {
    std::ofstream{path, std::ios::binary} << content;
}

#endif /* TESTS_CONTRACT_LINUX_TEMP_DIR_H */
