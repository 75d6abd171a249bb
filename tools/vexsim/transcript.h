// What happened, one line each, with the virtual time. The same scenario and seed give the same
// lines on every machine: no pointers, no real time, nothing that depends on how threads took
// turns.
#ifndef TOOLS_VEXSIM_TRANSCRIPT_H
#define TOOLS_VEXSIM_TRANSCRIPT_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace vexsim {

class Transcript {
  public:
    // path: file that gets a copy, empty none. Throws std::runtime_error if it cannot be written.
    Transcript(bool quiet, const std::string& path);

    void set_time(int64_t milliseconds) { now_ = milliseconds; }
    int64_t now() const { return now_; }

    void line(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Throws std::runtime_error if a line could not be written.
    void finish();

  private:
    using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

    bool quiet_;
    std::string path_;
    File file_{nullptr, &std::fclose};
    int64_t now_ = 0;
};

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_TRANSCRIPT_H
