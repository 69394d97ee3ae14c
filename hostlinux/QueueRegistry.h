#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "AttachedQueue.h"

namespace sal {

/// The queues that this process is attached to. A queue enters itself when it can be asked and leaves before
/// it goes; they stay while somebody walks through them. Lives as long as the process. Any thread.
class QueueRegistry {
public:
    static QueueRegistry& instance();

    void add(AttachedQueue& queue);
    void remove(AttachedQueue& queue);

    void receiverGone(const std::string& name);
    std::vector<MessageQueue::Status> statuses();

    /// Whether it is time to say again that a name is in use.
    bool reportsBusy(const std::string& name);

private:
    QueueRegistry();

    std::mutex m_mutex;
    std::vector<AttachedQueue*> m_queues;
    std::map<std::string, Throttle> m_busyNames;
};

}  // namespace sal
