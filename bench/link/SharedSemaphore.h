#pragma once

#include <fcntl.h>
#include <semaphore.h>
#include <sys/mman.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "Semaphore.h"
#include "UniqueFd.h"

/// A semaphore in a file, for two processes: it costs the same whatever else carries what they do.
class SharedSemaphore {
public:
    /// Whoever comes first makes the file, with so many places; the other process opens it afterwards.
    SharedSemaphore(const std::string& file, unsigned int places) {
        base::UniqueFd fd(open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        const bool isMade = fd.get() >= 0;
        if (!isMade)
            fd = base::UniqueFd(open(file.c_str(), O_RDWR | O_CLOEXEC));
        if (!fd || (isMade && ftruncate(fd.get(), sizeof(sem_t)) != 0))
            throw std::system_error(errno, std::generic_category(), file);
        void* pMemory = mmap(nullptr, sizeof(sem_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
        if (pMemory == MAP_FAILED)
            throw std::system_error(errno, std::generic_category(), file);
        m_pSemaphore = static_cast<sem_t*>(pMemory);
        if (isMade)
            sem_init(m_pSemaphore, 1, places);
    }
    ~SharedSemaphore() { munmap(m_pSemaphore, sizeof(sem_t)); }
    SharedSemaphore(const SharedSemaphore&) = delete;
    SharedSemaphore& operator=(const SharedSemaphore&) = delete;

    void take() { await(*m_pSemaphore); }
    void give() { sem_post(m_pSemaphore); }

private:
    sem_t* m_pSemaphore = nullptr;
};
