#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "IMessageSink.h"

/// Keeps each message that a driver sends; refuses them all when told to.
class RecordingSink : public IMessageSink {
public:
    bool send(const unsigned char* data, std::size_t length) override {
        const std::lock_guard lock(m_mutex);
        if (refuses)
            return false;
        messages.emplace_back(data, data + length);
        return true;
    }

    std::vector<std::string> messages;
    bool refuses = false;

private:
    std::mutex m_mutex;
};
