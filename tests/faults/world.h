// A daemon in full operation over the fake platform, small enough to be built anew for each
// injected failure: endpoints with objects and events, backplanes, regions, cards, queues, files.
#ifndef TESTS_FAULTS_WORLD_H
#define TESTS_FAULTS_WORLD_H

#include <map>
#include <string>

#include "notifQue.h"
#include "rt_cache.h"
#include "tests/support/fake_platform.h"

namespace faults {

enum : uint8_t { kKron = 1, kHba = 10, kNvme = 20, kCard = 21, kVdmEid = 40 };
enum : uint16_t { kDiskKey = 3, kEnclosureKey = 5, kBackplaneKey = 6, kVirtualDiskKey = 2 };

// Starts the daemon's part; goes on when something fails. Returns whether nothing did.
bool start();
// Ends it, whatever start() got done.
void stop();

class World {
  public:
    World();
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;
};

extern NotifQueue* queue;

// What is held at a moment, by name.
using Holdings = std::map<std::string, long>;
Holdings holdings();

// What the library's clock reads; 0: the time.
extern time_t clock_reads;

// A file of this process, written afresh.
std::string file(const std::string& name, const std::string& content);

// Memory that no failure reaches.
void* room(size_t size);
EventData* event_data(const char* id);
void free_list(RtCacheEventNode* list);

}  // namespace faults

#endif  // TESTS_FAULTS_WORLD_H
