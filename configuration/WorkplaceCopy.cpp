#include "WorkplaceCopy.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Needed.h"
#include "RegularFile.h"
#include "WorkplaceRewriting.h"
#include "WorkplaceSnapshot.h"
#include "XMLVerify.h"
#include "sal/Path.h"

#ifndef MFD_NOEXEC_SEAL
#define MFD_NOEXEC_SEAL 0x0008U
#endif

namespace {

constexpr const char* s_purpose = "the copy of the workplace file";
/// A writer's descriptor that was opened before is of no use either.
constexpr int s_seals = F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL;

int makeMemoryFile() {
    const int fd = ::memfd_create("workplace.xml", MFD_CLOEXEC | MFD_ALLOW_SEALING | MFD_NOEXEC_SEAL);
    // Older kernels do not know that a file of data need not be executable.
    return fd < 0 && errno == EINVAL ? ::memfd_create("workplace.xml", MFD_CLOEXEC | MFD_ALLOW_SEALING) : fd;
}

/// Gives the number another file at one blow: no other thread can get the number in between. 0, or the
/// system's error number.
int putBehind(int fd, int number) {
    while (::dup3(fd, number, O_CLOEXEC) < 0) {
        // The number lies beyond a limit that was lowered since.
        if (errno == EBADF)
            return EMFILE;
        if (errno != EINTR && errno != EBUSY)
            return errno;
    }
    return 0;
}

/// 0, or the system's error number.
int putCopyBehind(const std::string& bytes, int number) {
    const base::UniqueFd file(makeMemoryFile());
    if (!file)
        return errno;
    if (!base::writeAll(file.get(), bytes) || ::fcntl(file.get(), F_ADD_SEALS, s_seals) != 0)
        return errno;
    return putBehind(file.get(), number);
}

}  // namespace

WorkplaceCopy::WorkplaceCopy()
    : m_nothing(base::neededDescriptor(::eventfd(0, EFD_CLOEXEC), s_purpose)),
      m_number(base::neededDescriptor(::fcntl(m_nothing.get(), F_DUPFD_CLOEXEC, 0), s_purpose)),
      m_path("/proc/self/fd/" + std::to_string(m_number.get())) {}

std::string WorkplaceCopy::take(const WorkplaceSnapshot& snapshot,
                                const std::set<std::string>& unannouncedIDs,
                                const std::string& unannouncedType, bool hasPanelEntry) {
    int error = putBehind(m_nothing.get(), m_number.get());
    XMLVerify::setCopy(sal::Path(m_path), sal::Path(snapshot.path()), snapshot.signatureFault());
    if (error == 0 && snapshot.bytes())
        error =
            putCopyBehind(withUnannounced(*snapshot.bytes(), unannouncedIDs, unannouncedType, hasPanelEntry),
                          m_number.get());
    return error == 0 ? std::string()
                      : snapshot.path() + " cannot be handed to the module: " + std::strerror(error);
}
