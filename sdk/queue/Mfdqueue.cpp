#include "mfdqueue.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

#include "Fields.h"
#include "MessageCodes.h"
#include "Printable.h"
#include "QueueLink.h"
#include "sal/LogManager.h"

/// What a program holds.
struct mfdqueue {
    std::unique_ptr<QueueLink> pLink;
};

namespace {

/// Kept in a buffer and not in a string, whose end a thread that ends after this library would still wait
/// for.
thread_local char t_error[512] = "";

int fail(int result, std::string_view why) {
    const std::size_t length = why.copy(t_error, sizeof t_error - 1);
    t_error[length] = '\0';
    return result;
}

/// Does what may throw for want of memory or threads.
template <class Work>
int guarded(int otherwise, Work work) {
    try {
        return work();
    } catch (const std::exception& exception) {
        return fail(otherwise, exception.what());
    }
}

/// The log of the process, and what it said last of why a queue does not open.
class ProcessLog : private sal::LogManager::Observer {
public:
    /// Null before the first call of open().
    static sal::LogManager* get() { return s_pLog ? s_pLog->m_pLog.get() : nullptr; }
    /// The one log of the process, with this tag the first time. Never destroyed before the process ends.
    static ProcessLog& open(const std::string& driverID) {
        if (!s_pLog)
            s_pLog = new ProcessLog(driverID);
        return *s_pLog;
    }

    const std::string& driverID() const { return m_driverID; }
    void forgetError() {
        const std::lock_guard lock(m_mutex);
        m_error.clear();
    }
    std::string error() {
        const std::lock_guard lock(m_mutex);
        return m_error;
    }

private:
    explicit ProcessLog(const std::string& driverID)
        : m_driverID(driverID),
          m_pLog(std::make_unique<sal::LogManager>(
              sal::LogManager::Settings{.level = level(), .file = {}, .tag = driverID})) {
        m_pLog->setObserver(this);
        // What was logged last is still to be read when the process is over.
        std::atexit([] { get()->flush(); });
    }

    static int level() {
        int level = sal::LogOutput::eInfo;
        if (const char* pText = std::getenv("MFD_LOG_LEVEL"))
            std::from_chars(pText, pText + std::strlen(pText), level);
        return level >= sal::LogOutput::eCritical && level <= sal::LogOutput::eTrace ? level
                                                                                     : sal::LogOutput::eInfo;
    }

    void line(const std::string&, int level, const std::string& text) override {
        if (level > sal::LogOutput::eError)
            return;
        const std::lock_guard lock(m_mutex);
        m_error = text;
    }

    static inline ProcessLog* s_pLog = nullptr;

    const std::string m_driverID;
    std::mutex m_mutex;
    std::string m_error;
    const std::unique_ptr<sal::LogManager> m_pLog;
};

bool s_isOpen = false;

mfdqueue* open(const std::string& driverID) {
    if (driverID.empty()) {
        fail(0, "a driver ID is not empty");
        return nullptr;
    }
    ProcessLog& log = ProcessLog::open(driverID);
    if (s_isOpen || log.driverID() != driverID) {
        fail(0, s_isOpen ? "the process holds the queues of " + log.driverID() + " already"
                         : "the process is the driver " + log.driverID() + " and cannot become another one");
        return nullptr;
    }
    log.forgetError();
    auto pQueue = std::make_unique<mfdqueue>();
    pQueue->pLink = QueueLink::open(driverID);
    if (!pQueue->pLink) {
        fail(0, log.error());
        return nullptr;
    }
    s_isOpen = true;
    return pQueue.release();
}

}  // namespace

mfdqueue* mfdqueue_open(const char* driver_id) {
    mfdqueue* pQueue = nullptr;
    guarded(0, [&] {
        pQueue = open(driver_id ? driver_id : "");
        return 0;
    });
    return pQueue;
}

int mfdqueue_receive(mfdqueue* queue, void* buffer, size_t size, int milliseconds) {
    if (!queue || (!buffer && size > 0))
        return fail(MFDQUEUE_BROKEN, "no queue or no buffer is given");
    int length = 0;
    const int room = static_cast<int>(std::min(size, protocol::maximumLength));
    switch (queue->pLink->receive(static_cast<unsigned char*>(buffer), room, milliseconds, length)) {
        case QueueLink::EReceived::Message:
            return length;
        case QueueLink::EReceived::Nothing:
            return MFDQUEUE_NOTHING;
        case QueueLink::EReceived::Ended:
            return fail(MFDQUEUE_ENDED, "the host has let go of the queues");
        default:
            return fail(MFDQUEUE_BROKEN, "the input queue is broken");
    }
}

int mfdqueue_send(mfdqueue* queue, const void* message, size_t length, int milliseconds) {
    if (!queue || !message || length == 0 || length > protocol::maximumLength)
        return fail(MFDQUEUE_MALFORMED, "a message has 1 to 1024 bytes, and a queue it goes to");
    if (queue->pLink->send(static_cast<const unsigned char*>(message), static_cast<int>(length),
                           milliseconds < 0 ? -1 : milliseconds))
        return MFDQUEUE_DONE;
    return fail(MFDQUEUE_REFUSED, "the host takes no message: its queue is full, or it is gone");
}

const char* mfdqueue_driver_id(const mfdqueue* queue) {
    return queue ? queue->pLink->driverID().c_str() : "";
}

void mfdqueue_close(mfdqueue* queue) {
    if (!queue)
        return;
    delete queue;
    s_isOpen = false;
}

const char* mfdqueue_error(void) {
    return t_error;
}

void mfdqueue_log(int level, const char* text) {
    const int known =
        level >= sal::LogOutput::eCritical && level <= sal::LogOutput::eTrace ? level : sal::LogOutput::eInfo;
    guarded(0, [&] {
        if (sal::LogManager* pLog = ProcessLog::get())
            pLog->getLogOutput("MFD")->level(known) << (text ? text : "") << std::endl;
        else if (known <= sal::LogOutput::eWarning)
            std::fprintf(stderr, "MFD: %s\n", base::printable(text ? text : "").c_str());
        return 0;
    });
}

int mfdqueue_encode(const char* code, const mfdqueue_field* fields, size_t count, void* buffer, size_t size) {
    if (!code || (!fields && count > 0) || (!buffer && size > 0))
        return fail(MFDQUEUE_MALFORMED, "no code, no fields or no buffer is given");
    return guarded(MFDQUEUE_MALFORMED, [&] {
        std::string error;
        const int length =
            fields::encode(code, {fields, count}, {static_cast<unsigned char*>(buffer), size}, error);
        return length < 0 ? fail(length, error) : length;
    });
}

int mfdqueue_decode(const void* message, size_t length, char* code, mfdqueue_field* fields, size_t most,
                    char* texts) {
    if ((!message && length > 0) || !code || !texts || (!fields && most > 0))
        return fail(MFDQUEUE_MALFORMED, "no message, or no room for what it says, is given");
    return guarded(MFDQUEUE_MALFORMED, [&] {
        std::string error;
        const int count = fields::decode({static_cast<const unsigned char*>(message), length}, code,
                                         {fields, most}, texts, error);
        return count < 0 ? fail(count, error) : count;
    });
}
