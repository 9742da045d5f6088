// The service's System V semaphores: sets of one semaphore each, found by key and made on first use
// with permissions 0666, since the device's other programs use them too.
//
// All messages go to standard output. Any thread.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace veltrancord {

inline constexpr key_t readiness_semaphore = 530;

// Makes sure that the semaphore exists and gives it the value.
//
// Return: 1, or 0 after "create semaphore fail".
int32_t semaphore_create(key_t key, int value);

// Removes the semaphore; who waits for it wakes with an error. The service never does, since other
// programs may wait; it is for a program of the device that ends what it began.
//
// Return: what semctl returned; "Fail to delete semaphore" is printed when that is negative.
int32_t semaphore_delete(key_t key);

// Adds 1 to the semaphore, or waits until it is above 0 and takes 1 away.
//
// Return: 1, or 0 after a message. An interrupted operation is tried again, at most 12 times in
// all; the result of the twelfth does not count.
int32_t semaphore_post(key_t key);
int32_t semaphore_pend(key_t key);

// The texts that tell post from pend.
struct semaphore_texts {
    const char* fail;
    const char* excess;
};
extern const semaphore_texts post_texts;
extern const semaphore_texts pend_texts;

// The rule by which post and pend try again, apart from the system call: `operate` is called with
// `context` and answers as semop does.
//
// Return: as semaphore_post.
int32_t operate_semaphore(const semaphore_texts& texts, int (*operate)(void* context),
                          void* context);

}  // namespace veltrancord
