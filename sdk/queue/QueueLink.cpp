#include "QueueLink.h"

#include <chrono>
#include <string_view>
#include <thread>
#include <utility>

#include "MessageCodes.h"
#include "QueueNames.h"
#include "ThreadName.h"

namespace {

using Clock = std::chrono::steady_clock;

bool isWakeUp(const unsigned char* message, int length) {
    return std::string_view(reinterpret_cast<const char*>(message), static_cast<std::size_t>(length)) ==
           protocol::wakeUp;
}

/// What is left of a time-out that ends then, for another wait.
int left(int timeout, Clock::time_point end) {
    if (timeout < 0)
        return -1;
    const auto time = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    return time > 0 ? static_cast<int>(time) : 0;
}

}  // namespace

QueueLink::QueueLink(std::string driverID) : m_driverID(std::move(driverID)) {}

std::unique_ptr<QueueLink> QueueLink::open(const std::string& driverID) {
    std::unique_ptr<QueueLink> pLink(new QueueLink(driverID));
    if (!pLink->m_pInput->queue.open(protocol::inputQueue(driverID)) ||
        !pLink->m_output.open(protocol::outputQueue(driverID)))
        return nullptr;
    std::thread([pInput = pLink->m_pInput] { watch(pInput); }).detach();
    return pLink;
}

QueueLink::~QueueLink() {
    const std::lock_guard lock(m_pInput->mutex);
    m_pInput->isClosed = true;
    m_pInput->queue.close();
}

void QueueLink::watch(const std::shared_ptr<Input>& pInput) {
    base::nameThread("host queues");
    if (!pInput->queue.waitForCreatorEnd())
        return;
    pInput->hasHostLetGo = true;
    const std::lock_guard lock(pInput->mutex);
    if (pInput->isClosed)
        return;
    // A full queue wakes the receiver just as well.
    pInput->queue.send(reinterpret_cast<const unsigned char*>(protocol::wakeUp.data()),
                       static_cast<int>(protocol::wakeUp.size()), 0);
}

QueueLink::EReceived QueueLink::receive(unsigned char* buffer, int size, int timeout, int& length) {
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(timeout < 0 ? 0 : timeout);
    for (;;) {
        const bool hasHostLetGo = m_pInput->hasHostLetGo;
        length = m_pInput->queue.receive(buffer, size, hasHostLetGo ? 0 : left(timeout, end));
        if (length >= 0 && !isWakeUp(buffer, length))
            return EReceived::Message;
        if (length < 0 && m_pInput->queue.isBroken())
            return EReceived::Broken;
        if (length < 0 && hasHostLetGo)
            return EReceived::Ended;
        if (length < 0 && timeout >= 0 && !m_pInput->hasHostLetGo)
            return EReceived::Nothing;
        if (length < 0 && timeout < 0 && !m_pInput->hasHostLetGo)
            return EReceived::Broken;
    }
}

bool QueueLink::send(const unsigned char* data, int length, int timeout) {
    return m_output.send(data, length, timeout);
}
