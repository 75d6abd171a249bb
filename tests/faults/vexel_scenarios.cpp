#include <cstring>

#include "internal/vexel_state.h"
#include "tests/faults/scenario.h"
#include "tests/faults/world.h"
#include "vexel.h"

namespace faults {
namespace {

using vexutils::log_state;
using vexutils::LogFile;
using vexutils::LogInit;

void use_log_file() {
    log_state.file = LogFile::Enabled;
    log_state.init = LogInit::Done;
}

template <class T>
int64_t freed(T* block, void (*free_block)(void*) = vexel_free) {
    const bool made = block != nullptr;
    free_block(block);
    return made;
}

}  // namespace

Scenarios vexel_scenarios() {
    Scenarios all;
    all.add("blink", {0, {1}}, [] { return BlinkPCIeSSD(1, 2); });
    all.add("stop to blink", {0, {1}}, [] { return UnBlinkPCIeSSD(1, 2, 3); });
    all.add("identifier", {0}, [] {
        char text[30];
        return ConvertPPIDtoHRIFormat("CN0123456789012345678A00", text);
    });
    all.add("HBA flag", {0, {1}}, [] { return IsvexelHBAInventoryDisabled(); });
    all.add("TAVI flag", {0, {1}}, [] { return IsvexelTAVIInventoryDisabled(); });
    all.add("log flag", {1, {2}}, [] {
        log_state.file = LogFile::NotChecked;
        return IsvexelLogDisabled();
    });
    all.add("stress polling", {1, {0}}, [] {
        int first, second;
        return IsstressTAVIPollEnabled(&first, &second);
    });
    all.add("dump request", {1, {0}}, [] {
        static std::string request;
        vexutils::flag_paths.dump_request = (request = file("rtdump", "")).c_str();
        return IsDumpEnabled();
    });
    all.add("trimmed text", {2, {0}}, [] {
        char text[] = "  ab ";
        StripLeadingTrailingSpace(text, 5);
        return 2 * (text[0] == 'a');
    });
    all.add("friendly name", {1, {0}}, [] { return freed(getFriendlyFQDDName(L"RAID.Slot.1-1")); });
    all.add("log depth", {0}, [] { return hasLogDepthExceeded(1000); });
    all.add("dumped bytes", {0}, [] {
        use_log_file();
        return hexdump("0123456789abcdef0123", 20);
    });
    all.add("start and end of the log", {0}, [] {
        use_log_file();
        const int result = rt_log_init();
        rt_log_Exit();
        return result;
    });
    all.add("lines of both lengths", {0}, [] {
        static const std::wstring text(2000, L'w');
        use_log_file();
        vexel_wlog(0, "short", L"text");
        vexel_wlog(0, "long", text.c_str());
        return pthread_mutex_trylock(&logmutex) + pthread_mutex_unlock(&logmutex);
    });
    all.add("block", {1, {0}}, [] { return freed(vexel_alloc(10)); });
    all.add("array", {1, {0}}, [] {
        void** table = vexel_alloc_2darray(3, 4, 5);
        vexel_free_2darray(table, 3);
        return table != nullptr;
    });
    all.add("bounded copies", {0}, [] {
        wchar_t wide[4];
        char narrow[4];
        wcsncpy_safe(wide, L"abcdef", 3);
        return memcpy_safe(narrow, 4, "abc", 4);
    });
    all.add("sleep", {0}, [] { return (vexel_sleep(0, 1, nullptr), 0); });
    return all;
}

}  // namespace faults
