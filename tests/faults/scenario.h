// One call, with what it may return. All exported names occur in the scenarios' sources.
#ifndef TESTS_FAULTS_SCENARIO_H
#define TESTS_FAULTS_SCENARIO_H

#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

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

// The result of calls that fail alike. A failure that does not last shows each alone.
template <class... Results>
int64_t either(Results... results) {
    return (int64_t{0} | ... | results);
}

struct Scenarios : std::vector<Scenario> {
    // call: repeatable; leaves nothing behind that the World does not free.
    template <class Call>
    void add(const char* what, Promise promise, Call) {
        push_back({what, std::move(promise), [] { return static_cast<int64_t>(Call{}()); }});
    }
};

Scenarios vexel_scenarios();
Scenarios sync_scenarios();
Scenarios queue_scenarios();
Scenarios cache_scenarios();
Scenarios event_scenarios();
Scenarios submit_scenarios();
Scenarios backplane_scenarios();
Scenarios region_scenarios();

}  // namespace faults

#endif  // TESTS_FAULTS_SCENARIO_H
