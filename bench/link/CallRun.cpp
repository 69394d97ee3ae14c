#include "CallRun.h"

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <thread>
#include <vector>

#include "ForkedWork.h"
#include "RunProgram.h"
#include "UpdateSeries.h"

namespace {

constexpr std::chrono::milliseconds g_pause{2};

}  // namespace

void CallRun::programs(const CallPeerKind& kind, double seconds, int round) const {
    ForkedWork::run([&] {
        const auto pPeer = kind.make(m_directory);
        const std::vector<std::string> words = pPeer->program();
        const auto call = [&] {
            const std::string printed = runProgram(words);
            if (!pPeer->isAnswer(printed))
                throw std::runtime_error(kind.program + " has printed \"" + printed + "\"");
        };
        times("program", kind.program, seconds, round, call, [] {});
    });
}

void CallRun::connection(const CallPeerKind& kind, double seconds, int round) const {
    ForkedWork::run([&] {
        const auto pPeer = kind.make(m_directory);
        pPeer->open();
        times(
            "connection", kind.connection, seconds, round, [&] { pPeer->ask(); },
            [] { std::this_thread::sleep_for(g_pause); });
    });
}

void CallRun::times(const char* work, const std::string& name, double seconds, int round,
                    const std::function<void()>& call, const std::function<void()>& pause) const {
    const auto nanoseconds = static_cast<std::int64_t>(seconds * 1e9);
    std::int64_t now = UpdateSeries::now();
    const std::int64_t warmUntil = now + nanoseconds / 2;
    std::int64_t begin = 0;  // of the first that counts
    std::vector<std::uint32_t> taken;
    while (begin == 0 || now < begin + nanoseconds) {
        const std::int64_t before = UpdateSeries::now();
        call();
        now = UpdateSeries::now();
        if (before >= warmUntil) {
            begin = begin == 0 ? before : begin;
            taken.push_back(static_cast<std::uint32_t>(now - before));
        }
        pause();
    }
    m_results.addTimes(work, name, round, {{"seconds", static_cast<double>(now - begin) / 1e9}}, taken);
}
