#include "service/shared_memory.h"

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include "service/processes.h"
#include "store/document_set.h"
#include "support/ipc_namespace.h"

namespace veltrancord {
namespace {

class SharedMemory : public ipc_namespace {
  protected:
    ~SharedMemory() override { shm_remove(); }
};

bool exists(key_t key) {
    return ::shmget(key, 0, 0) >= 0;
}

TEST_F(SharedMemory, IsObtainedAndAttached) {
    EXPECT_EQ(g_requestSegment.id, -1);
    ASSERT_EQ(shm_attach(), 0);
    for (const shared_segment& segment : {g_requestSegment, g_replySegment}) {
        ASSERT_NE(segment.address, nullptr);
        shmid_ds state = {};
        ASSERT_EQ(::shmctl(segment.id, IPC_STAT, &state), 0);
        EXPECT_EQ(state.shm_segsz, 0x60000U);
        EXPECT_EQ(state.shm_perm.mode & 0777, 0666);
        EXPECT_EQ(state.shm_nattch, 1U);
    }
    EXPECT_EQ(g_requestSegment.id, ::shmget(524, 0, 0));
    EXPECT_EQ(g_replySegment.id, ::shmget(525, 0, 0));
}

TEST_F(SharedMemory, IsNotAttachedASecondTime) {
    ASSERT_EQ(shm_attach(), 0);
    const void* const address = g_requestSegment.address;
    ASSERT_EQ(shm_attach(), 0);
    EXPECT_EQ(g_requestSegment.address, address);
}

TEST_F(SharedMemory, IsKeptWhenItIsDetached) {
    ASSERT_EQ(shm_attach(), 0);
    const int id = g_replySegment.id;
    shm_detach();
    EXPECT_EQ(g_requestSegment.address, nullptr);
    EXPECT_EQ(g_replySegment.address, nullptr);
    EXPECT_EQ(g_replySegment.id, id);
    EXPECT_TRUE(exists(524));
    ASSERT_EQ(shm_attach(), 0);
    EXPECT_NE(g_replySegment.address, nullptr);
}

TEST_F(SharedMemory, ReportsAFirstSegmentThatCannotBeHad) {
    const int smaller = ::shmget(524, 4096, IPC_CREAT | 0666);
    testing::internal::CaptureStderr();
    EXPECT_EQ(shm_attach(), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "allocate fail 0x20c error Invalid argument\n!!\n");
    EXPECT_EQ(g_requestSegment.id, -1);
    EXPECT_FALSE(exists(525));
    ::shmctl(smaller, IPC_RMID, nullptr);
}

TEST_F(SharedMemory, ReportsASecondSegmentThatCannotBeHad) {
    const int smaller = ::shmget(525, 4096, IPC_CREAT | 0666);
    testing::internal::CaptureStderr();
    EXPECT_EQ(shm_attach(), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "allocate fail 0x20d error Invalid argument!!\n");
    ::shmctl(smaller, IPC_RMID, nullptr);
}

TEST_F(SharedMemory, GoesWithTheDocumentSet) {
    install_store_hooks();
    ASSERT_EQ(shm_attach(), 0);
    EXPECT_EQ(g_storeHooks.reply_length_word(), g_replySegment.address);
    g_storeHooks.freed();
    EXPECT_EQ(g_requestSegment.id, -1);
    EXPECT_EQ(g_replySegment.id, -1);
    EXPECT_EQ(g_storeHooks.reply_length_word(), nullptr);
    EXPECT_FALSE(exists(524));
    EXPECT_FALSE(exists(525));
}

TEST_F(SharedMemory, ThatWasNeverObtainedIsNotRemoved) {
    ASSERT_GE(::shmget(524, 4096, IPC_CREAT | 0666), 0);  // another program's
    shm_remove();
    EXPECT_TRUE(exists(524));
}

}  // namespace
}  // namespace veltrancord
