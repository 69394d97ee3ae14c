#include "RingReaders.h"

#include <chrono>
#include <stdexcept>
#include <string>

#include "StreamCursor.h"
#include "StreamReader.h"

namespace fs = std::filesystem;
using EResult = stream::IStreamReader::EResult;

namespace {

std::string ringIn(const fs::path& queues) {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(queues)) {
        if (entry.path().filename() == "stream.ring")
            return entry.path();
    }
    throw std::runtime_error("there are no rings below " + queues.string());
}

}  // namespace

RingReaders::RingReaders(const fs::path& queues, int readers) {
    std::string error;
    m_pSource = stream::StreamSource::open(ringIn(queues), error);
    if (!m_pSource)
        throw std::runtime_error(error);
    for (int reader = 0; reader < readers; ++reader)
        m_threads.emplace_back([this] { follow(); });
}

RingReaders::~RingReaders() {
    m_isOver = true;
    for (std::thread& thread : m_threads)
        thread.join();
}

void RingReaders::follow() const {
    constexpr std::chrono::milliseconds pause{10};
    const auto pReader = stream::StreamReader::openNewest(*m_pSource, 0, stream::KeyNames());
    while (!m_isOver) {
        while (!m_isOver && pReader->next(std::chrono::steady_clock::now()) != EResult::Nothing) {
        }
        std::this_thread::sleep_for(pause);
    }
}
