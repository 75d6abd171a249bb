// One call, with what it may return. All exported names occur in the scenarios' sources.
#ifndef TESTS_FAULTS_SCENARIO_H
#define TESTS_FAULTS_SCENARIO_H

#include <functional>
#include <initializer_list>
#include <numeric>
#include <type_traits>

#include "rt_evtq.h"
#include "rt_lclogwrp.h"
#include "rt_shm.h"
#include "rt_sync.h"
#include "tests/faults/world.h"
#include "vexel.h"

namespace faults {

// What a call may return, and under which lock it is made.
struct Promise {
    int64_t done;                      // result without a failure
    std::vector<int64_t> failed = {};  // with one; none: as without
    bool holds_cache = false;          // called with mutexRtCache held
};

struct Scenario {
    const char* what;
    Promise promise;
    int64_t (*run)();
};

// The result of a function that fills a few bytes.
template <class... Parameters>
int64_t read(uint32_t (*get)(uint8_t*, Parameters...),
             std::type_identity_t<Parameters>... arguments) {
    uint8_t bytes[40] = {};
    return get(bytes, arguments...);
}

// The result of calls, made one after the other, that fail alike. A failure that does not last
// shows each alone.
inline int64_t either(std::initializer_list<int64_t> results) {
    return std::accumulate(results.begin(), results.end(), int64_t{0}, std::bit_or{});
}

// The results of calls, made one after the other, as the digits behind a 1; 9 for -1.
inline int64_t digits(std::initializer_list<int64_t> results) {
    return std::accumulate(results.begin(), results.end(), int64_t{1},
                           [](auto all, auto result) { return 10 * all + (result + 10) % 10; });
}

struct Scenarios : std::vector<Scenario> {
    // call: repeatable; leaves nothing behind that the World does not free.
    template <class Call>
    void add(const char* what, Promise promise, Call) {
        push_back({what, std::move(promise), [] { return static_cast<int64_t>(Call{}()); }});
    }
};

void base_scenarios(Scenarios& all);
void cache_scenarios(Scenarios& all);
void region_scenarios(Scenarios& all);

}  // namespace faults

#endif  // TESTS_FAULTS_SCENARIO_H
