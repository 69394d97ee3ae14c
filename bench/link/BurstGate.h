#pragma once

#include <fcntl.h>
#include <semaphore.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>

#include "Semaphore.h"
#include "UniqueFd.h"

/// Lets a sending process have two bursts under way and no more: each burst takes a place, and the receiver
/// gives it back when the whole burst is there. A semaphore in a file, so it costs the same whatever carries
/// the bursts.
class BurstGate {
public:
    static constexpr std::uint64_t s_size = 100;  ///< updates in a burst
    static constexpr unsigned int s_underWay = 2;

    /// Whoever comes first makes the file; the other process opens it afterwards.
    explicit BurstGate(const std::string& file) {
        base::UniqueFd fd(open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        const bool isMade = fd.get() >= 0;
        if (!isMade)
            fd = base::UniqueFd(open(file.c_str(), O_RDWR | O_CLOEXEC));
        if (!fd || (isMade && ftruncate(fd.get(), sizeof(sem_t)) != 0))
            throw std::system_error(errno, std::generic_category(), file);
        void* pMemory = mmap(nullptr, sizeof(sem_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
        if (pMemory == MAP_FAILED)
            throw std::system_error(errno, std::generic_category(), file);
        m_pPlaces = static_cast<sem_t*>(pMemory);
        if (isMade)
            sem_init(m_pPlaces, 1, s_underWay);
    }
    ~BurstGate() { munmap(m_pPlaces, sizeof(sem_t)); }
    BurstGate(const BurstGate&) = delete;
    BurstGate& operator=(const BurstGate&) = delete;

    static bool isBurstEnd(std::uint64_t number) { return number % s_size == s_size - 1; }

    /// The sender's, before each update: waits for a place when the update begins a burst.
    void pass(std::uint64_t number) {
        if (number % s_size == 0)
            await(*m_pPlaces);
    }
    /// The receiver's, after each update.
    void arrived(std::uint64_t number) {
        if (isBurstEnd(number))
            sem_post(m_pPlaces);
    }

private:
    sem_t* m_pPlaces = nullptr;
};
