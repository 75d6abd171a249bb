#include <unistd.h>

#include <cstring>

#include "bench/bench_support.h"

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--memory") == 0) {
        return bench::print_memory();
    }
    bench::register_log_cases();
    bench::register_cache_cases();
    bench::register_dup_cases();
    bench::register_inventory_cases();
    bench::register_queue_cases();
    const int status = bench::run_cases(argc, argv);
    bench::run_exits();
    unlink(bench::log_path().c_str());
    return status;
}
