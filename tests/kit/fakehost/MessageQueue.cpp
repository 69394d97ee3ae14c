#include "sal/MessageQueue.h"

#include "Journal.h"
#include "QueueBoard.h"

namespace sal {

struct MessageQueue::Impl {
    std::string name;
    bool made = false;
};

MessageQueue::MessageQueue() : m_pImpl(std::make_unique<Impl>()) {}

MessageQueue::~MessageQueue() {
    if (!m_pImpl->made)
        return;
    fakehost::Journal::instance().note("queue destroyed " + m_pImpl->name);
    fakehost::QueueBoard::instance().release(m_pImpl->name);
}

bool MessageQueue::create(const std::string& name, unsigned short capacity, int messageSize, int mode) {
    if (!fakehost::Journal::instance().perform("queue create " + name + " " + std::to_string(capacity) + " " +
                                               std::to_string(messageSize) + " " + std::to_string(mode)))
        return false;
    if (!fakehost::QueueBoard::instance().create(name, capacity, messageSize))
        return false;
    m_pImpl->name = name;
    m_pImpl->made = true;
    return true;
}

bool MessageQueue::open(const std::string& name) {
    fakehost::Journal::instance().note("queue open " + name);
    return false;
}

bool MessageQueue::send(const unsigned char* data, int length, int timeout) {
    if (!m_pImpl->made)
        return false;
    const std::string message(reinterpret_cast<const char*>(data), static_cast<std::size_t>(length));
    return fakehost::Journal::instance().perform("queue send " + m_pImpl->name + " " +
                                                 fakehost::escaped(message) + " timeout " +
                                                 std::to_string(timeout)) &&
           fakehost::QueueBoard::instance().send(m_pImpl->name, message, timeout);
}

int MessageQueue::receive(unsigned char* buffer, int size, int timeout) {
    if (!m_pImpl->made)
        return -1;
    return fakehost::QueueBoard::instance().receive(m_pImpl->name, buffer, size, timeout);
}

bool MessageQueue::isBroken() const {
    return false;
}

void MessageQueue::close() {
    if (!m_pImpl->made)
        return;
    fakehost::Journal::instance().note("queue close " + m_pImpl->name);
    fakehost::QueueBoard::instance().release(m_pImpl->name);
    m_pImpl->made = false;
}

bool MessageQueue::waitForCreatorEnd() const {
    return false;
}

void MessageQueue::receiverGone(const std::string& name, std::chrono::steady_clock::time_point) {
    fakehost::Journal::instance().note("queue receiver gone " + name);
}

bool MessageQueue::hasReader(const std::string&) {
    return false;
}

bool MessageQueue::waitForReaders(const std::vector<std::string>&, std::size_t, int) {
    return true;
}

std::vector<MessageQueue::Status> MessageQueue::statuses() {
    return {};
}

std::optional<MessageQueue::Level> MessageQueue::level(const std::string&) {
    return std::nullopt;
}

void MessageQueue::setObserver(Observer*, EObserved) {}

std::string MessageQueue::nameFault(const std::string&) {
    return {};
}

std::string MessageQueue::createFault(const std::string&) {
    return {};
}

bool MessageQueue::areFree(const std::vector<std::string>&) {
    return true;
}

std::vector<MessageQueue::Refusal> MessageQueue::refusals() {
    return {};
}

bool MessageQueue::retire(const std::string&) {
    return false;
}

void MessageQueue::passNextCreate(const Refusal&) {}

bool MessageQueue::removeNames() {
    fakehost::Journal::instance().note("queue names removed");
    return true;
}

}  // namespace sal
