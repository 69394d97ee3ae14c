#pragma once

#include <atomic>
#include <filesystem>
#include <memory>
#include <thread>
#include <vector>

#include "StreamSource.h"

/// Readers of a host's rings, each on a thread of its own, who follow all that is written from now on, with a
/// look each 10 ms. Made and ended by one thread.
class RingReaders {
public:
    /// Of the host whose queues are in that directory. Throws where it has no rings.
    RingReaders(const std::filesystem::path& queues, int readers);
    ~RingReaders();
    RingReaders(const RingReaders&) = delete;
    RingReaders& operator=(const RingReaders&) = delete;

private:
    void follow() const;

    std::unique_ptr<stream::StreamSource> m_pSource;
    std::atomic<bool> m_isOver = false;
    std::vector<std::thread> m_threads;
};
