#include "Ledger.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace {

/// Null for a file to read that is too short.
void* map(const fs::path& file, std::size_t size, bool isWritten) {
    const int fd = ::open(file.c_str(), (isWritten ? O_RDWR | O_CREAT : O_RDONLY) | O_CLOEXEC, 0600);
    if (fd < 0)
        throw std::runtime_error(file.string() + ": " + std::strerror(errno));
    if (!isWritten && ::lseek(fd, 0, SEEK_END) < static_cast<off_t>(size)) {
        ::close(fd);
        return nullptr;
    }
    void* pMapped = MAP_FAILED;
    if (!isWritten || ::ftruncate(fd, static_cast<off_t>(size)) == 0)
        pMapped = ::mmap(nullptr, size, isWritten ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED, fd, 0);
    ::close(fd);
    if (pMapped == MAP_FAILED)
        throw std::runtime_error(file.string() + ": cannot be mapped");
    return pMapped;
}

std::uint32_t nextNumber(const fs::path& directory) {
    using Counter = std::atomic<std::uint32_t>;
    void* pMapped = map(directory / "counter", sizeof(Counter), true);
    const std::uint32_t number = static_cast<Counter*>(pMapped)->fetch_add(1) + 1;
    ::munmap(pMapped, sizeof(Counter));
    return number;
}

}  // namespace

Ledger Ledger::create(const fs::path& directory, std::uint32_t driver) {
    const std::uint32_t number = nextNumber(directory);
    // A fresh file is zero, and only what is written takes room.
    auto* pPage = static_cast<Page*>(map(
        directory / (std::to_string(number) + "." + std::to_string(driver) + ".ledger"), sizeof(Page), true));
    pPage->instance = number;
    pPage->driver = driver;
    pPage->pid = ::getpid();
    pPage->created = now();
    pPage->isWhole = 1;
    return Ledger(pPage);
}

Ledger Ledger::open(const fs::path& file) {
    auto* pPage = static_cast<Page*>(map(file, sizeof(Page), false));
    Ledger ledger(pPage);
    return pPage && pPage->isWhole == 1 ? std::move(ledger) : Ledger();
}

Ledger::~Ledger() {
    if (m_pPage)
        ::munmap(m_pPage, sizeof(Page));
}

Ledger::Ledger(Ledger&& other) noexcept : m_pPage(std::exchange(other.m_pPage, nullptr)) {}

Ledger& Ledger::operator=(Ledger&& other) noexcept {
    std::swap(m_pPage, other.m_pPage);
    return *this;
}

std::int64_t Ledger::now() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}
