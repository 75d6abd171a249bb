#include "rt_cache/rt_cache_nodes.h"

#include "vexel.h"

namespace vexutils {

void free_event_data(EventData* data) {
    if (data == nullptr) {
        return;
    }
    vexel_free(data->messageId);
    vexel_free(data->messageArgs);
    vexel_free(data);
}

}  // namespace vexutils
