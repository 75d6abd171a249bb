// What the cases of the speed suite share. Cases are named PATH/floor, PATH/lib and PATH/peer_NAME;
// the floor is the least that any implementation must do (the same bytes written, the same blocks
// allocated), measured in the same run.
#ifndef BENCH_BENCH_SUPPORT_H
#define BENCH_BENCH_SUPPORT_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench {

using Operation = std::function<void()>;

struct Case {
    std::string name;
    Operation setup;      // before every timed stretch
    Operation operation;  // what is timed
    int threads = 1;
};

// The compiler must take a value as used, and memory as read and written by somebody else.
template <class T>
void keep(const T& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}
inline void barrier() {
    asm volatile("" : : : "memory");
}

// Switches the trace log's file for the code that follows; on, it writes to log_path().
void log_file(bool on);
const std::string& log_path();

// The lines that one run of an operation writes to the trace log's file.
std::vector<std::string> lines_of(const Operation& operation);

// Opens, writes and closes once per line: what any logger that keeps no handle must do.
void write_raw(const std::vector<std::string>& lines);

// Registers one case.
void add(const std::string& name, Operation setup, Operation operation, int threads = 1);

// Registers PATH/lib with the file on and PATH/floor, which writes the same lines raw.
void add_logged(const std::string& path, Operation setup, Operation operation, int threads = 1);

// Registers PATH/lib with the file off and PATH/floor: the least work, and one bare call of the
// debug log for each line that the operation owes it.
void add_owing_lines(const std::string& path, Operation setup, Operation operation,
                     Operation least_work);

// Makes the cache that a case runs on, unless it is the one that the last case used. Returns after
// build() when it was made anew.
void use_world(const std::string& name, const Operation& build);

// Ends the run with a message when a case does not do what it is to measure.
void must(bool holds, const char* what);

// Frees what the cases of a file have built up; run in order at the end.
void at_exit(Operation operation);
void run_exits();

// One per source of cases.
void register_log_cases();
void register_cache_cases();
void register_dup_cases();
void register_inventory_cases();
void register_queue_cases();

const std::vector<Case>& cases();

// Times all registered cases: medians of interleaved repetitions, as Google Benchmark's JSON has
// them. One of two, by what the machine model has: Google Benchmark, or a loop of ours that takes
// [--repetitions=N] [--out=FILE] [--filter=TEXT]. Returns: the exit status.
int run_cases(int argc, char** argv);

// A server of so many controllers and drives in the cache, and the update that publishes it.
void have_inventory(uint32_t controllers, uint32_t drives);
void update_inventory();

// Prints the cache's resident memory and the deepest stack as JSON. Returns: the exit status.
int print_memory();

}  // namespace bench

#endif  // BENCH_BENCH_SUPPORT_H
