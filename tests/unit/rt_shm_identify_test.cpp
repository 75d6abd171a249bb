#include "tests/support/backplane_test.h"

namespace {

class Identify : public BackplaneTest {
  protected:
    // The records written since the last call.
    Bytes written() {
        Bytes bytes;
        for (const fake::BpWrite& write : platform.bp_writes) {
            const auto* record = reinterpret_cast<const uint8_t*>(&write.record);
            bytes.insert(bytes.end(), record, record + 4);
        }
        platform.bp_writes.clear();
        return bytes;
    }
};

TEST_F(Identify, EachWritesItsRecordAndOnlyAFailedStatusLeavesASession) {
    EXPECT_EQ(rtshm_BpApiInit(), 0u);
    sNVMeSSDBPInfo.slots[107].i2cEid = 20;
    // left: the session that a failed write leaves
    for (const auto& [what, left, call, record] : Rows<const char*, bool, uint32_t (*)(), Bytes>{
             {"blink", false, [] { return BlinkNVMeSSD(2, 7); }, {2, 7, 8, 0}},
             {"unblink", false, [] { return UnBlinkNVMeSSD(2, 7, 300); }, {2, 7, 44, 1}},
             {"all", false, [] { return UnBlinkAllNVMeSSDS(9, 2, 7, 300); }, {2, 7, 44, 1}},
             {"status",
              true,
              [] { return updateNVMeSSDDriveStatusToBP(5, 9, 20); },
              {2, 7, 5, 0}}}) {
        EXPECT_EQ(call(), 0u);
        EXPECT_EQ(written(), record);
        platform.fail(Place::BpWrite);
        EXPECT_EQ(call(), 1u);
        EXPECT_EQ(platform.open_sessions(), left ? 2 : 1);
    }
    EXPECT_EQ(UnBlinkAllNVMeSSDS(9, 2, 7, 0xFFFF), 0u);
    EXPECT_EQ(written(), Bytes{}) << "no state";
    EXPECT_EQ(updateNVMeSSDDriveStatusToBP(6, 9, 21), 0u);
    EXPECT_EQ(written(), (Bytes{255, 255, 6, 0})) << "an add-in card has no position";
    EXPECT_EQ(sNVMeSSDBPInfo.slots[109].driveState, 5) << "a status goes by the caller's slot";
    platform.sessions.erase(std::prev(platform.sessions.end()));  // the one that was left
}

}  // namespace
