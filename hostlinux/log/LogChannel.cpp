#include "LogChannel.h"

#include <pthread.h>
#include <signal.h>
#include <spdlog/details/log_msg.h>
#include <spdlog/sinks/sink.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "ThreadName.h"

namespace sal {

using namespace std::chrono_literals;

struct LogChannel::State {
    struct Entry {
        std::uint64_t number;
        std::shared_ptr<const LogRecord> pRecord;
    };

    State(SinkMaker maker, Complaint complaint)
        : makeSink(std::move(maker)), complain(std::move(complaint)) {}

    bool isOverfull() const { return queue.size() > s_maxLines || queuedBytes > s_maxBytes; }
    bool isFull() const { return queue.size() >= s_maxLines || queuedBytes >= s_maxBytes; }
    void waitForRoom(std::unique_lock<std::mutex>& lock);
    void run();
    void write(const LogRecord& record);
    void failed(const char* reason);

    const SinkMaker makeSink;
    const Complaint complain;

    std::mutex mutex;
    std::condition_variable wakeWriter;
    std::condition_variable progress;
    std::deque<Entry> queue;
    std::size_t queuedBytes = 0;
    std::uint64_t posted = 0;   // number of the newest entry
    std::uint64_t written = 0;  // all entries up to this number are written or dropped
    std::uint64_t dropped = 0;  // since the last batch was taken
    bool stopping = false;
    bool finished = false;
    bool blocked = false;  // found so, and nothing has been written since

    // The writing thread's own.
    spdlog::sink_ptr pSink;
    std::chrono::steady_clock::time_point nextTry{};
    std::uint64_t missed = 0;
    bool broken = false;
};

/// A burst waits for the writing thread, so that a destination that works loses nothing; one that makes no
/// room in that time is not waited for again until it goes on.
void LogChannel::State::waitForRoom(std::unique_lock<std::mutex>& lock) {
    if (!blocked)
        blocked = !progress.wait_for(lock, 200ms, [this] { return !isFull(); });
}

void LogChannel::State::run() {
    constexpr std::size_t batchSize = 256;
    std::vector<Entry> batch;
    std::unique_lock lock(mutex);
    for (;;) {
        wakeWriter.wait(lock, [this] { return stopping || !queue.empty(); });
        if (queue.empty())
            break;
        const std::size_t count = std::min(queue.size(), batchSize);
        for (std::size_t i = 0; i < count; ++i) {
            queuedBytes -= queue.front().pRecord->text.size();
            batch.push_back(std::move(queue.front()));
            queue.pop_front();
        }
        const std::uint64_t lost = std::exchange(dropped, 0);
        lock.unlock();

        if (lost > 0)
            write({spdlog::level::warn, spdlog::log_clock::now(), "LOG",
                   std::to_string(lost) + (lost == 1 ? " line" : " lines") +
                       " dropped here: the log could not be written in time"});
        for (const Entry& entry : batch)
            write(*entry.pRecord);

        lock.lock();
        written = batch.back().number;
        blocked = false;
        batch.clear();
        progress.notify_all();
    }
    finished = true;
    progress.notify_all();
}

void LogChannel::State::write(const LogRecord& record) {
    if (!pSink && std::chrono::steady_clock::now() < nextTry) {
        ++missed;
        return;
    }
    try {
        if (!pSink)
            pSink = makeSink();
        spdlog::details::log_msg message(record.time, spdlog::source_loc{}, record.output, record.level,
                                         record.text);
        pSink->log(message);
        pSink->flush();
    } catch (const std::exception& e) {
        failed(e.what());
        return;
    } catch (...) {
        failed("unknown error");
        return;
    }
    if (std::exchange(broken, false))
        complain("the log file is written again, " + std::to_string(std::exchange(missed, 0)) +
                 " lines are missing in it");
}

void LogChannel::State::failed(const char* reason) {
    ++missed;
    pSink.reset();
    nextTry = std::chrono::steady_clock::now() + 1s;
    if (!std::exchange(broken, true))
        complain(std::string("the log goes on without its file: ") + reason);
}

LogChannel::LogChannel(SinkMaker makeSink, Complaint complain, const std::string& threadName)
    : m_pState(std::make_shared<State>(std::move(makeSink), std::move(complain))) {
    // Signals are for the program's own threads: one that arrived here would take its default action.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        m_thread = std::thread([pState = m_pState, threadName] {
            base::nameThread(threadName);
            pState->run();
        });
    } catch (const std::system_error& error) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw std::runtime_error("no thread can be had for the log: " + error.code().message());
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

LogChannel::~LogChannel() {
    std::unique_lock lock(m_pState->mutex);
    m_pState->stopping = true;
    m_pState->wakeWriter.notify_one();
    const bool finished = m_pState->progress.wait_for(lock, 1s, [this] { return m_pState->finished; });
    lock.unlock();
    if (finished)
        m_thread.join();
    else
        m_thread.detach();
}

void LogChannel::post(std::shared_ptr<const LogRecord> pRecord) {
    State& state = *m_pState;
    std::unique_lock lock(state.mutex);
    if (state.isFull())
        state.waitForRoom(lock);
    state.queuedBytes += pRecord->text.size();
    state.queue.push_back({++state.posted, std::move(pRecord)});
    while (state.isOverfull()) {
        state.queuedBytes -= state.queue.front().pRecord->text.size();
        state.queue.pop_front();
        ++state.dropped;
    }
    state.wakeWriter.notify_one();
}

bool LogChannel::flush(std::chrono::milliseconds timeout) {
    std::unique_lock lock(m_pState->mutex);
    const std::uint64_t target = m_pState->posted;
    return m_pState->progress.wait_for(lock, timeout, [&] { return m_pState->written >= target; });
}

}  // namespace sal
