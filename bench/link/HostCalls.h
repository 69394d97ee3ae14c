#pragma once

#include <fcntl.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "CallCounts.h"
#include "Files.h"
#include "UniqueFd.h"

/// How often a program has called what tells of a process's end, counted by a library that is loaded into it.
/// The file is the object's own.
class HostCalls {
public:
    struct Numbers {
        std::uint64_t waitid = 0;
        std::uint64_t poll = 0;
        std::uint64_t epollWait = 0;
    };

    explicit HostCalls(std::filesystem::path file) : m_file(std::move(file)) {
        const base::UniqueFd fd(open(m_file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        void* pMemory = MAP_FAILED;
        if (fd && ftruncate(fd.get(), sizeof(CallCounts)) == 0)
            pMemory = mmap(nullptr, sizeof(CallCounts), PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
        if (pMemory == MAP_FAILED)
            throw std::system_error(errno, std::generic_category(), m_file);
        m_pCounts = static_cast<CallCounts*>(pMemory);
    }
    ~HostCalls() { munmap(m_pCounts, sizeof(CallCounts)); }
    HostCalls(const HostCalls&) = delete;
    HostCalls& operator=(const HostCalls&) = delete;

    /// What the program needs in its environment.
    std::vector<std::pair<std::string, std::string>> environment() const {
        return {{"LD_PRELOAD", builtFile("lib/benchmodules/count_calls.so")}, {"MFD_BENCH_CALLS", m_file}};
    }
    /// So far. Throws when the program has not loaded the library.
    Numbers numbers() const {
        if (!m_pCounts->areCounted)
            throw std::runtime_error("the host's calls are not counted");
        return {m_pCounts->waitid, m_pCounts->poll, m_pCounts->epollWait};
    }

private:
    std::filesystem::path m_file;
    CallCounts* m_pCounts = nullptr;
};
