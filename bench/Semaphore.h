#pragma once

#include <semaphore.h>

#include <cerrno>

/// Until another process posts, however long that takes.
inline void await(sem_t& semaphore) {
    while (sem_wait(&semaphore) != 0 && errno == EINTR) {
    }
}
