#include "sal/HostQueueDirectory.h"

#include <pthread.h>
#include <stdlib.h>

#include <mutex>
#include <optional>
#include <random>

#include "LogLine.h"
#include "QueueDirectory.h"
#include "QueueFile.h"
#include "QueueRegistry.h"
#include "sal/LogOutput.h"
#include "sal/ProcessFamily.h"

namespace sal {

namespace {

/// The host's hold on its own directory. A child that is only forked lets go of it: else it would keep the
/// directory when the host has died.
struct Hold {
    std::mutex mutex;
    std::optional<QueueDirectory> directory;
};

Hold& hold() {
    static Hold* const s_pHold = [] {
        ::pthread_atfork([] { hold().mutex.lock(); }, [] { hold().mutex.unlock(); },
                         [] {
                             hold().directory.reset();
                             hold().mutex.unlock();
                         });
        return new Hold;
    }();
    return *s_pHold;
}

/// For a directory that cannot be made yet: children are told of it all the same.
std::string anyName() {
    static constexpr char letters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::random_device random;
    std::string name = QueueDirectory::ownPattern();
    for (std::size_t i = name.rfind('-') + 1; i < name.size(); ++i)
        name[i] = letters[random() % (sizeof(letters) - 1)];
    return name;
}

/// Lets go of a directory of its own, which is then one that a host has left. Nothing where there is none.
std::optional<QueueDirectory> leaveOwn() {
    {
        const std::lock_guard lock(hold().mutex);
        hold().directory.reset();
    }
    const char* pPath = ::getenv("MFD_QUEUE_DIR");
    for (QueueDirectory& directory : QueueDirectory::left()) {
        if (pPath && directory.path() == pPath)
            return std::make_optional(std::move(directory));
    }
    return std::nullopt;
}

}  // namespace

struct HostQueueDirectory::Impl {
    std::string path;
    bool isOwn = false;
};

HostQueueDirectory::HostQueueDirectory() : m_pImpl(std::make_unique<Impl>()) {
    if (const char* pSetting = ::getenv("MFD_QUEUE_DIR"); pSetting && *pSetting != '\0') {
        m_pImpl->path = pSetting;
        return;
    }
    m_pImpl->isOwn = true;
    // Another host that removes what dead hosts left may come between its making and its lock.
    for (int attempt = 0; attempt < 10 && !hold().directory; ++attempt) {
        m_pImpl->path = QueueDirectory::ownPattern();
        if (!::mkdtemp(m_pImpl->path.data()))
            m_pImpl->path = anyName();
        ::setenv("MFD_QUEUE_DIR", m_pImpl->path.c_str(), 1);
        std::string error;
        auto directory = QueueDirectory::open(error);
        if (!directory)
            return;
        if (directory->lockForHost()) {
            const std::lock_guard lock(hold().mutex);
            hold().directory = std::move(directory);
        }
    }
}

HostQueueDirectory::~HostQueueDirectory() {
    if (!m_pImpl->isOwn)
        return;
    if (auto directory = leaveOwn()) {
        QueueFile::removeAll(*directory);
        directory->removeIfLeft();
    }
    ::unsetenv("MFD_QUEUE_DIR");
}

const std::string& HostQueueDirectory::path() const {
    return m_pImpl->path;
}

void HostQueueDirectory::removeLeft() const {
    if (!m_pImpl->isOwn)
        return;
    for (QueueDirectory& directory : QueueDirectory::left()) {
        // One that was stopped before it attached leaves no trace in a queue, and cannot see its host's end.
        for (const auto& process : ProcessFamily::continueStopped("MFD_QUEUE_DIR=" + directory.path()))
            logLine("PROCESS", LogOutput::eWarning,
                    "process " + std::to_string(process.pid) + " (" + process.name +
                        ") of a host that is gone was stopped and is continued, so that it sees that");
        QueueFile::removeFree(directory);
        directory.removeIfLeft();
        if (directory.isStillThere())
            continue;
        // Its driver processes are gone, too. One that was killed could not end what it had started.
        for (const auto& process : ProcessFamily::endMarked("MFD_QUEUE_DIR=" + directory.path()))
            logLine("PROCESS", LogOutput::eWarning,
                    "process " + std::to_string(process.pid) + " (" + process.name +
                        ") was left behind by a driver of a host that is gone, and is ended");
    }
}

bool HostQueueDirectory::removeNow() {
    const bool areNamesGone = QueueRegistry::instance().removeNames();
    if (auto directory = leaveOwn())
        directory->removeIfLeft();
    return areNamesGone;
}

}  // namespace sal
