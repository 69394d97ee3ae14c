#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "KeyTable.h"
#include "StreamReader.h"
#include "StreamSource.h"

/// What readers within the host need of its rings: where they are, what their numbers mean, and where to tell
/// what they were too slow for. Owned by Recorder; any thread.
class RecordedStream {
public:
    enum class EReader {
        Recorder,  ///< what writes the segments
        Panel,     ///< what tells the pages of the web panel
        Client     ///< of GET /api/v1/stream
    };
    static constexpr std::size_t s_readers = 3;

    /// Both outlive it.
    RecordedStream(const stream::StreamSource& source, const stream::KeyTable& keys)
        : m_source(source), m_keys(keys) {}

    const stream::StreamSource& source() const { return m_source; }
    /// As StreamReader::open, without a search for what the numbers mean.
    std::unique_ptr<stream::StreamReader> open(const stream::StreamCursor& from, std::string& error) const {
        return stream::StreamReader::open(m_source, from, error, m_keys.names());
    }
    /// What the numbers mean by now.
    stream::KeyNames names() const { return m_keys.names(); }
    /// As StreamReader::openNewest.
    std::unique_ptr<stream::StreamReader> openNewest(std::uint64_t auditBytes) const {
        return stream::StreamReader::openNewest(m_source, auditBytes, m_keys.names());
    }

    /// So many records were overwritten before the reader came to them.
    void addLapped(EReader reader, std::uint64_t records) const {
        m_lapped[static_cast<std::size_t>(reader)].fetch_add(records, std::memory_order_relaxed);
    }
    std::uint64_t lapped(EReader reader) const {
        return m_lapped[static_cast<std::size_t>(reader)].load(std::memory_order_relaxed);
    }

private:
    const stream::StreamSource& m_source;
    const stream::KeyTable& m_keys;
    mutable std::array<std::atomic<std::uint64_t>, s_readers> m_lapped{};
};
