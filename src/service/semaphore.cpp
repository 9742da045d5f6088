#include "service/semaphore.h"

#include <sys/ipc.h>
#include <sys/sem.h>

#include <cerrno>

#include "leaf/message.h"

namespace veltrancord {

namespace {

constexpr int permissions = 0666;
constexpr int most_retries = 10;

int semaphore_id(key_t key) {
    return ::semget(key, 1, IPC_CREAT | permissions);
}

// The argument of semctl; the system's headers leave its declaration to the program.
union semaphore_argument {
    int value;
    semid_ds* state;
    unsigned short* values;
};

struct semaphore_operation {
    int id;
    sembuf change;
};

int call_semop(void* context) {
    auto* const operation = static_cast<semaphore_operation*>(context);
    return ::semop(operation->id, &operation->change, 1);
}

int32_t change_semaphore(key_t key, short by, const semaphore_texts& texts) {
    semaphore_operation operation = {semaphore_id(key), {0, by, 0}};
    return operate_semaphore(texts, call_semop, &operation);
}

}  // namespace

const semaphore_texts post_texts = {"semaphore post fail", "semaphore post retry excess 10 fail"};
const semaphore_texts pend_texts = {"semaphore pend fail", "semaphore pend retry excess 10 fail"};

int32_t semaphore_create(key_t key, int value) {
    const int id = semaphore_id(key);
    semaphore_argument argument = {};
    argument.value = value;
    if (id < 0 || ::semctl(id, 0, SETVAL, argument) < 0) {
        print_output("create semaphore fail\n");
        return 0;
    }
    return 1;
}

int32_t semaphore_delete(key_t key) {
    const int result = ::semctl(semaphore_id(key), 0, IPC_RMID);
    if (result < 0) {
        print_output("Fail to delete semaphore\n");
    }
    return result;
}

// The count is tested before the result is looked at, so that a twelfth operation counts as a
// failure even when it went well. That is how both have always behaved; who waits for readiness
// ends in any case.
int32_t operate_semaphore(const semaphore_texts& texts, int (*operate)(void* context),
                          void* context) {
    for (int retries = 0;; ++retries) {
        const bool done = operate(context) == 0;
        const int error = done ? 0 : errno;
        if (!done && error != EINTR) {
            print_output("%s\n", texts.fail);
            print_output("%s,errno is %d\n", texts.fail, error);
            return 0;
        }
        if (retries > most_retries) {
            print_output("%s\n", texts.excess);
            return 0;
        }
        if (done) {
            return 1;
        }
    }
}

int32_t semaphore_post(key_t key) {
    return change_semaphore(key, 1, post_texts);
}

int32_t semaphore_pend(key_t key) {
    return change_semaphore(key, -1, pend_texts);
}

}  // namespace veltrancord
