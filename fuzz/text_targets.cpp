// Texts that are taken apart: FQDDs, the job filter, the files of simulated drives, alerts.
#include <gtest/gtest.h>

#include <algorithm>

#include "fuzz/fuzz.h"
#include "internal/vexel_state.h"
#include "rt_lclogwrp.h"
#include "rt_shm.h"
#include "rt_sync.h"
#include "tests/support/files.h"

namespace {

using fuzz::Bytes;
using fuzz::Input;

// A text, in 16-bit characters of a given length and terminated.
void run_fqdd(Input& arguments, Input& format) {
    const std::string drawn = arguments.text();
    const Bytes given = format.bytes(format.left());
    Bytes text(arguments.shift);
    text.insert(text.end(), drawn.begin(), drawn.end());
    text.insert(text.end(), given.begin(), given.end());
    const auto read = [&](uint32_t length) {
        const auto* fqdd = reinterpret_cast<const char*>(text.data()) + arguments.shift;
        const auto some = static_cast<uint8_t>(std::min(length, 255u));
        uint8_t bay = 0, slot = 0;
        uint32_t type = 0;
        EXPECT_EQ(getBayIDandSlotFromFqdd(fqdd, some, &bay, &slot), 0u);
        fuzz::tell("bay", bay);
        fuzz::tell("slot", slot);
        const uint32_t missing = arguments.below(32);  // one of them may be null
        const uint32_t result = getSlotandSlotIndexfromFQDD(
            missing == 1 ? nullptr : fqdd, length, missing == 2 ? nullptr : &slot,
            missing == 3 ? nullptr : &bay, missing == 4 ? nullptr : &type);
        EXPECT_EQ(result == 5, missing >= 1 && missing <= 4);
        fuzz::tell("slot and index", result);
        fuzz::tell("slot", slot);
        fuzz::tell("index", bay);
        fuzz::tell("type", type);
    };
    text.shrink_to_fit();
    if (const auto length = static_cast<uint32_t>(text.size() - arguments.shift); length != 0) {
        read(length);
        read(1 + arguments.below(length));  // what follows is no part of it
    }
    text.push_back(0);
    read(0);
}
const fuzz::Target fqdd_target{"fqdd", run_fqdd};

// A list of jobs' controllers, and devices that are looked for in it.
void run_filter(Input& input) {
    std::vector<std::wstring> texts(input.below(8));
    std::vector<const wchar_t*> fqdds;
    for (std::wstring& text : texts) {
        text = input.wide_text();
        fqdds.push_back(input.below(16) == 0 ? nullptr : text.c_str());
    }
    updateNotifFQDD(static_cast<int32_t>(fqdds.size()), fqdds.data());
    while (input.left() != 0) {
        const std::wstring device = input.wide_text();
        const auto eid = input.any<uint8_t>();
        const uint32_t present = isFQDDEIDPresent(device.c_str(), eid, input.below(2));
        EXPECT_LE(present, 1u);
        fuzz::tell("present", present);
        EXPECT_EQ(isTAVIFQDDEIDPresent(input.any<uint8_t>()), 1u);
    }
    for (const wchar_t* fqdd : fqdds) {
        const bool matches = fqdd != nullptr && fqdd[0] != L'\0' && wcschr(fqdd, L'%') == nullptr;
        EXPECT_TRUE(!matches || isFQDDEIDPresent(fqdd, 1, 0) == 1) << "it names itself";
    }
    freeHybridData(&g_hybridJobData);
    EXPECT_EQ(g_hybridJobData, nullptr);
}
const fuzz::Target filter_target{"filter", run_filter};

// The lines of drives' states; one time in eight there are FRU images, too.
void run_simulation(Input& arguments, Input& format) {
    static const TempDir folder;
    static const std::string status = folder / "status", fru = folder / "fru";
    if (file_content(fru).empty()) {
        write_file(fru, std::string(600, 'f'));
    }
    vexutils::flag_paths.ssd_status = status.c_str();
    vexutils::flag_paths.ssd_fru = arguments.below(8) == 0 ? fru.c_str() : "/nonexistent";
    const Bytes text = format.bytes(format.left());
    write_file(status, {text.begin(), text.end()});
    const Bytes& region = fake::platform().region(20);
    Bytes expected = region;
    EXPECT_EQ(RTSHM_SimulatePCIeSSD(), 0u);
    std::copy_n(region.begin() + 142, 128, expected.begin() + 142);  // statuses
    expected[10] = region[10];                                       // their counter
    EXPECT_EQ(region, expected);
}
const fuzz::Target simulation_target{"simulation", run_simulation};

// Alerts in every phase: what the rules say is what happens.
void run_submit(Input& input) {
    EXPECT_EQ(RTSync_Init(), 0u);
    RTSyncGlobalStatus status{};
    status.flags = input.any<uint16_t>();
    status.phase = input.below(8);
    RTSync_LockGlobalStatus();
    RTSync_SetGlobalStatus(status);
    RTSync_UnLockGlobalStatus();
    const auto& submitted = fake::platform().submissions;
    for (int alerts = 0; alerts < 8 && input.left() != 0; ++alerts) {
        std::string texts[RT_MESSAGE_ARGUMENTS];
        const char* args[RT_MESSAGE_ARGUMENTS];
        for (size_t i = 0; i < RT_MESSAGE_ARGUMENTS; ++i) {
            texts[i] = input.text();
            args[i] = input.below(16) == 0 ? nullptr : texts[i].c_str();
        }
        const std::string id = input.text();
        const std::wstring fqdd = input.wide_text();
        const auto count = static_cast<uint8_t>(input.below(RT_MESSAGE_ARGUMENTS + 2));
        const size_t before = submitted.size();
        const int32_t result =
            rt_JWLOGCMNSubmitEvent(1 + input.below(3), id.c_str(), fqdd.c_str(), args, count);
        fuzz::tell("submit", static_cast<uint64_t>(result));
        const RtVerdict verdict = rt_ExplainSubmission(id.c_str(), fqdd.c_str(), count,
                                                       status.flags, status.phase, nullptr);
        size_t packed = 0;  // what the event library has 200 bytes for
        for (size_t i = 0; i < count && i < RT_MESSAGE_ARGUMENTS; ++i) {
            packed += (args[i] != nullptr ? texts[i].size() : 0) + 1;
        }
        const bool sent = submitted.size() > before;
        EXPECT_EQ(sent, verdict == RT_VERDICT_SUBMITTED && packed <= 200);
        EXPECT_EQ(result == 0, sent || verdict == RT_VERDICT_SUPPRESSED) << result;
        EXPECT_TRUE(!sent || submitted.back().fqdd.size() <= 99);

        const uint32_t size = input.below(300);
        char* buffer = reinterpret_cast<char*>(input.keep(Bytes(size, 'x')));
        if (rt_Buildmsgstring(0, fqdd.c_str(), buffer, size) == 0) {
            EXPECT_LT(strnlen(buffer, size), size);
        }
        fuzz::tell("text", buffer, size);
        rt_JWLOGCMNSubmitEvent_nonRaid(0, 0, 1, id.c_str());
    }
    RTSync_Destroy();
}
const fuzz::Target submit_target{"submit", run_submit};

}  // namespace
