#include "service/semaphore.h"

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "service/processes.h"
#include "store/document_set.h"
#include "support/ipc_namespace.h"

namespace veltrancord {
namespace {

// semop's results in order: 0, or the errno of a failure. The last one is given again and again.
struct script {
    std::vector<int> errors;
    std::size_t calls = 0;

    static int operate(void* context) {
        script& self = *static_cast<script*>(context);
        const int error = self.errors[std::min(self.calls, self.errors.size() - 1)];
        ++self.calls;
        errno = error;
        return error == 0 ? 0 : -1;
    }
};

struct operated {
    int32_t result;
    std::size_t calls;
    std::string printed;
};

operated operate(const std::vector<int>& errors, const semaphore_texts& texts = post_texts) {
    script results{errors};
    testing::internal::CaptureStdout();
    const int32_t result = operate_semaphore(texts, script::operate, &results);
    return {result, results.calls, testing::internal::GetCapturedStdout()};
}

std::vector<int> interrupted(std::size_t times, int then) {
    std::vector<int> errors(times, EINTR);
    errors.push_back(then);
    return errors;
}

TEST(SemaphoreRetry, EndsWithTheFirstSuccess) {
    const operated done = operate({0});
    EXPECT_EQ(done.result, 1);
    EXPECT_EQ(done.calls, 1U);
    EXPECT_EQ(done.printed, "");
}

TEST(SemaphoreRetry, TriesAgainAfterAnInterruption) {
    const operated done = operate(interrupted(10, 0));
    EXPECT_EQ(done.result, 1);
    EXPECT_EQ(done.calls, 11U);
    EXPECT_EQ(done.printed, "");
}

TEST(SemaphoreRetry, DoesNotCountASuccessOfTheTwelfthCall) {
    const operated done = operate(interrupted(11, 0));
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(done.calls, 12U);
    EXPECT_EQ(done.printed, "semaphore post retry excess 10 fail\n");
}

TEST(SemaphoreRetry, MakesAtMostTwelveCalls) {
    const operated done = operate({EINTR}, pend_texts);
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(done.calls, 12U);
    EXPECT_EQ(done.printed, "semaphore pend retry excess 10 fail\n");
}

TEST(SemaphoreRetry, GivesUpAtAnyOtherError) {
    const operated post = operate(interrupted(2, ERANGE));
    EXPECT_EQ(post.result, 0);
    EXPECT_EQ(post.calls, 3U);
    EXPECT_EQ(post.printed, "semaphore post fail\nsemaphore post fail,errno is 34\n");
    EXPECT_EQ(operate({EIDRM}, pend_texts).printed,
              "semaphore pend fail\nsemaphore pend fail,errno is 43\n");
}

TEST(SemaphoreRetry, ReportsAnErrorOfTheTwelfthCallAsAnError) {
    EXPECT_EQ(operate(interrupted(11, EIDRM), pend_texts).printed,
              "semaphore pend fail\nsemaphore pend fail,errno is 43\n");
}

constexpr key_t key = 530;

int value_of(key_t semaphore) {
    const int id = ::semget(semaphore, 0, 0);
    return id < 0 ? -1 : ::semctl(id, 0, GETVAL);
}

class Semaphore : public ipc_namespace {};

TEST_F(Semaphore, IsCreatedForEverybodyWithItsValue) {
    EXPECT_EQ(semaphore_create(key, 3), 1);
    EXPECT_EQ(value_of(key), 3);
    semid_ds state = {};
    ASSERT_EQ(::semctl(::semget(key, 0, 0), 0, IPC_STAT, &state), 0);
    EXPECT_EQ(state.sem_perm.mode & 0777, 0666);
    EXPECT_EQ(state.sem_nsems, 1U);
}

TEST_F(Semaphore, GetsANewValueWhenItIsCreatedAgain) {
    EXPECT_EQ(semaphore_create(key, 3), 1);
    EXPECT_EQ(semaphore_create(key, 0), 1);
    EXPECT_EQ(value_of(key), 0);
}

TEST_F(Semaphore, ReportsThatItCannotBeCreated) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(semaphore_create(key, 40'000), 0);  // more than a semaphore can hold
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "create semaphore fail\n");
}

TEST_F(Semaphore, IsPostedAndPended) {
    EXPECT_EQ(semaphore_post(key), 1);  // creates it
    EXPECT_EQ(semaphore_post(key), 1);
    EXPECT_EQ(value_of(key), 2);
    EXPECT_EQ(semaphore_pend(key), 1);
    EXPECT_EQ(value_of(key), 1);
}

TEST_F(Semaphore, ReportsAPostBeyondItsLargestValue) {
    EXPECT_EQ(semaphore_create(key, 32'767), 1);
    testing::internal::CaptureStdout();
    EXPECT_EQ(semaphore_post(key), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "semaphore post fail\nsemaphore post fail,errno is 34\n");
}

TEST_F(Semaphore, IsDeleted) {
    EXPECT_EQ(semaphore_create(key, 1), 1);
    EXPECT_EQ(semaphore_delete(key), 0);
    EXPECT_EQ(value_of(key), -1);
}

TEST_F(Semaphore, ReportsThatItCannotBeDeleted) {
    EXPECT_EQ(semaphore_create(key, 1), 1);
    testing::internal::CaptureStdout();
    // In a process of a user who does not own the semaphore.
    const pid_t stranger = ::fork();
    if (stranger == 0) {
        if (::setresuid(54321, 54321, 54321) != 0) {
            ::_exit(77);
        }
        const int32_t result = semaphore_delete(key);
        std::fflush(stdout);
        ::_exit(result == -1 ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(stranger, &status, 0), stranger);
    const std::string printed = testing::internal::GetCapturedStdout();
    if (WEXITSTATUS(status) == 77) {
        GTEST_SKIP() << "this user cannot become another one";
    }
    EXPECT_EQ(status, 0);
    EXPECT_EQ(printed, "Fail to delete semaphore\n");
    EXPECT_EQ(value_of(key), 1);
}

TEST_F(Semaphore, SetGetsItsValuesWhenTheStoreIsLoaded) {
    install_store_hooks();
    g_storeHooks.loaded();
    EXPECT_EQ(value_of(520), 0);
    EXPECT_EQ(value_of(521), 0);
    EXPECT_EQ(value_of(522), 1);
    EXPECT_EQ(value_of(523), 0);
    EXPECT_EQ(value_of(530), 0);
}

}  // namespace
}  // namespace veltrancord
