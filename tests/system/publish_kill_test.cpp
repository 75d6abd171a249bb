// The library's whole publication, killed before, in the middle of and behind each of its writes:
// the next start repairs what was left.
#include "platform/linux/shm_admin.h"
#include "platform/shm.h"
#include "rt_shm.h"
#include "rt_sync.h"
#include "tests/support/linux_test.h"
#include "tests/support/objects.h"

namespace {

enum class Moment { Before, Within, Behind };

// The write in which this process dies, counted down; 0: none.
int deadly_write = 0;
Moment moment;

// Starts the library and publishes one controller, as VEXEL does.
bool publish(int die_in = 0, Moment when = Moment::Before) {
    deadly_write = die_in;
    moment = when;
    RTSync_Init();
    rtcache_Init();
    RTSHM_InitSharedMem();
    rtcache_UpdateCachedObject(RTCACHE_REGISTER, 8, RTCACHE_TYPE_KRON, 0);
    rtcache_SetStorageEIDStatus(8, 2);
    rtcache_GetLock();
    rtcache_SetCachedObject(RTCACHE_KEY_CONTROLLER, 8, 8, make_controller());
    rtcache_SetCachedObject(RTCACHE_KEY_DISK, 8, 3, make_disk());
    const bool done = RTSHM_UpdateSharedMem(1) == 0;
    SMMutexUnLock(mutexRtCache);
    rtcache_Destroy();
    RTSync_Destroy();
    return done;
}

Bytes published() {
    Bytes bytes(ZENT_SHM_STORAGE_INVENTORY_SIZE);
    EXPECT_EQ(Zent_shm_memread(ZENT_SHM_STORAGE_INVENTORY, bytes.data(), 0,
                               ZENT_SHM_STORAGE_INVENTORY_SIZE),
              0);
    return bytes;
}

TEST(PublishKill, TheNextStartRepairsWhateverAKillInAWriteLeft) {
    setenv("VEX_SHM_NAMESPACE", ("vexpublish-" + std::to_string(getpid())).c_str(), 1);
    ASSERT_TRUE(succeeded(in_child([] { return publish(); })));
    const Bytes whole = published();
    EXPECT_EQ(whole[0], 1) << "one controller";
    int killed = 0;
    for (bool dies = true; dies && !HasFailure();) {
        const int write = killed / 3 + 1;
        for (const Moment when : {Moment::Before, Moment::Within, Moment::Behind}) {
            ASSERT_EQ(vexplatform_shm_remove_all(), 0);
            dies = !succeeded(in_child([&] { return publish(write, when); }));
            killed += dies;
            ASSERT_TRUE(succeeded(in_child([] { return publish(); })));
            EXPECT_EQ(published(), whole) << "after a death in write " << write;
        }
    }
    EXPECT_GE(killed, 3 * 8) << "start and update write four sections each";
    EXPECT_EQ(vexplatform_shm_remove_all(), 0);
    printf("figures: R7 kills_at_writes=%d\n", killed);
}

}  // namespace

extern "C" {
int __real_Zent_shm_memwrite(int region, const void* src, int offset, int count);
int __wrap_Zent_shm_memwrite(int region, const void* src, int offset, int count);

int __wrap_Zent_shm_memwrite(int region, const void* src, int offset, int count) {
    if (deadly_write == 0 || --deadly_write != 0) {
        return __real_Zent_shm_memwrite(region, src, offset, count);
    }
    if (moment != Moment::Before) {
        __real_Zent_shm_memwrite(region, src, offset, moment == Moment::Within ? count / 2 : count);
    }
    return raise(SIGKILL);
}
}
