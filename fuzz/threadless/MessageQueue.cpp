#include "sal/MessageQueue.h"

#include <algorithm>
#include <cstring>

#include "Expect.h"
#include "MessageFeed.h"

namespace sal {

struct MessageQueue::Impl {
    bool isMade = false;
};

MessageQueue::MessageQueue() : m_pImpl(std::make_unique<Impl>()) {}

MessageQueue::~MessageQueue() = default;

bool MessageQueue::create(const std::string&, unsigned short, int messageSize, int) {
    expect(messageSize == 1024, "queues take messages of 1024 bytes");
    m_pImpl->isMade = true;
    return true;
}

bool MessageQueue::open(const std::string&) {
    return false;
}

bool MessageQueue::send(const unsigned char*, int length, int) {
    expect(length >= 6 && length <= 1024, "what is sent has a code and fits into a message");
    return m_pImpl->isMade;
}

int MessageQueue::receive(unsigned char* buffer, int size, int) {
    MessageFeed& feed = MessageFeed::instance();
    if (feed.messages.empty()) {
        if (feed.onEnd)
            feed.onEnd();
        return -1;
    }
    const std::optional<std::string> message = std::move(feed.messages.front());
    feed.messages.pop_front();
    if (!message)
        return -1;
    const int length = std::min(size, static_cast<int>(message->size()));
    std::memcpy(buffer, message->data(), static_cast<std::size_t>(length));
    return length;
}

void MessageQueue::close() {
    m_pImpl->isMade = false;
}

bool MessageQueue::waitForCreatorEnd() const {
    return false;
}

void MessageQueue::receiverGone(const std::string&, std::chrono::steady_clock::time_point) {}

bool MessageQueue::hasReader(const std::string&) {
    return false;
}

bool MessageQueue::waitForReaders(const std::vector<std::string>&, std::size_t, int) {
    return true;
}

std::vector<MessageQueue::Status> MessageQueue::statuses() {
    return {};
}

std::string MessageQueue::nameFault(const std::string&) {
    return {};
}

}  // namespace sal
