#include "DiskTrace.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <utility>

namespace {

DiskTrace* s_pTrace = nullptr;

std::string pathOf(int file) {
    std::array<char, 4096> path{};
    const ssize_t length =
        ::readlink(("/proc/self/fd/" + std::to_string(file)).c_str(), path.data(), path.size());
    return length > 0 ? std::string(path.data(), static_cast<std::size_t>(length)) : std::string();
}

bool isDirectory(int file) {
    struct stat status {};
    return ::fstat(file, &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

DiskTrace::DiskTrace(std::string directory, std::optional<std::size_t> deathAt)
    : m_directory(std::move(directory)), m_deathAt(deathAt) {
    s_pTrace = this;
}

DiskTrace::~DiskTrace() {
    s_pTrace = nullptr;
}

bool DiskTrace::isBelow(const std::string& path) const {
    return path == m_directory || path.starts_with(m_directory + '/');
}

void DiskTrace::note(Call call) {
    if (!s_pTrace || !s_pTrace->isBelow(call.path))
        return;
    if (s_pTrace->m_deathAt == s_pTrace->m_calls.size()) {
        if (call.kind == EKind::Write) {
            const int file = static_cast<int>(
                ::syscall(SYS_openat, AT_FDCWD, call.path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC, 0));
            static_cast<void>(::syscall(SYS_write, file, call.more.data(), call.more.size() / 2));
        }
        ::raise(SIGKILL);
    }
    s_pTrace->m_calls.push_back(std::move(call));
}

void DiskTrace::noteOf(int file, EKind kind, std::string more, std::size_t size) {
    if (s_pTrace)
        note({kind, pathOf(file), std::move(more), size});
}

// In the place of the C library's.
extern "C" {

int open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        std::va_list more;
        va_start(more, flags);
        mode = va_arg(more, mode_t);
        va_end(more);
        if (::access(path, F_OK) != 0)
            DiskTrace::note({DiskTrace::EKind::Create, path});
    }
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int mkdir(const char* path, mode_t mode) noexcept {
    if (::access(path, F_OK) != 0)
        DiskTrace::note({DiskTrace::EKind::MakeDirectory, path});
    return static_cast<int>(::syscall(SYS_mkdirat, AT_FDCWD, path, mode));
}

ssize_t write(int file, const void* bytes, size_t count) {
    DiskTrace::noteOf(file, DiskTrace::EKind::Write, {static_cast<const char*>(bytes), count});
    return ::syscall(SYS_write, file, bytes, count);
}

int ftruncate(int file, off_t size) noexcept {
    DiskTrace::noteOf(file, DiskTrace::EKind::Cut, {}, static_cast<std::size_t>(size));
    return static_cast<int>(::syscall(SYS_ftruncate, file, size));
}

int fdatasync(int file) {
    DiskTrace::noteOf(file, DiskTrace::EKind::SyncFile);
    return static_cast<int>(::syscall(SYS_fdatasync, file));
}

int fsync(int file) {
    DiskTrace::noteOf(file, isDirectory(file) ? DiskTrace::EKind::SyncDirectory : DiskTrace::EKind::SyncFile);
    return static_cast<int>(::syscall(SYS_fsync, file));
}

int rename(const char* from, const char* to) noexcept {
    DiskTrace::note({DiskTrace::EKind::Rename, from, to});
    return static_cast<int>(::syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

int unlink(const char* path) noexcept {
    DiskTrace::note({DiskTrace::EKind::Remove, path});
    return static_cast<int>(::syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

}  // extern "C"
