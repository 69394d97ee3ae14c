#include "LineStreams.h"

#include <array>
#include <unordered_map>

#include "LineStream.h"
#include "sal/LogOutput.h"

namespace sal {
namespace {

/// Set when the thread's streams are gone: other thread-local objects may still log in their destructors.
thread_local bool t_threadEnds = false;

struct ThreadStreams {
    ThreadStreams() = default;
    ThreadStreams(const ThreadStreams&) = delete;
    ThreadStreams& operator=(const ThreadStreams&) = delete;
    ~ThreadStreams() { t_threadEnds = true; }

    using ByLevel = std::array<std::unique_ptr<LineStream>, LogOutput::eTrace>;
    std::unordered_map<std::uint64_t, ByLevel> streams;
    std::ostream nowhere{nullptr};
};

ThreadStreams& threadStreams() {
    static thread_local ThreadStreams t_streams;
    return t_streams;
}

std::ostream& nowhereForEndingThreads() {
    static std::ostream s_stream{nullptr};
    return s_stream;
}

void dropOrphans(ThreadStreams& threads) {
    std::erase_if(threads.streams, [](const auto& entry) {
        for (const auto& pStream : entry.second) {
            if (pStream && pStream->isOrphan())
                return true;
        }
        return false;
    });
}

}  // namespace

std::ostream& lineStream(std::uint64_t outputNumber, const std::string& outputName, int level,
                         const std::shared_ptr<LogCore>& pCore) {
    if (t_threadEnds)
        return nowhereForEndingThreads();
    ThreadStreams& threads = threadStreams();
    auto found = threads.streams.find(outputNumber);
    if (found == threads.streams.end()) {
        dropOrphans(threads);
        found = threads.streams.try_emplace(outputNumber).first;
    }
    auto& pStream = found->second.at(static_cast<std::size_t>(level - 1));
    if (!pStream)
        pStream = std::make_unique<LineStream>(pCore, outputName, level);
    return *pStream;
}

std::ostream& nullStream() {
    return t_threadEnds ? nowhereForEndingThreads() : threadStreams().nowhere;
}

}  // namespace sal
