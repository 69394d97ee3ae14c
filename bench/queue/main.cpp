// The queue beside what one would pick instead: one way and there and back, between two processes. The
// transports take turns within a round; every message is checked. One JSON object a line on standard output:
// {"work": ..., "transport": ..., "size": bytes, "round": n, "rate": messages a second, "cpu": seconds of
// both processes for a million messages} and {"work": "round trip", ..., "p50_us": ..., "p99_us": ...}.

#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "Transport.h"
#include "sal/HostQueueDirectory.h"
#include "sal/LogManager.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t g_longest = 1024;

/// What the sending process tells the receiving one.
struct Shared {
    Clock::time_point firstSent;
    double senderCpu;
};

double cpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Every word of a message tells its number and its place.
void fill(std::uint64_t* pWords, std::size_t count, std::uint64_t number) {
    for (std::size_t i = 0; i < count; ++i)
        pWords[i] = number * 0x9E3779B97F4A7C15U + i;
}

void check(const std::uint64_t* pWords, std::size_t count, std::uint64_t number) {
    std::uint64_t wrong = 0;
    for (std::size_t i = 0; i < count; ++i)
        wrong |= pWords[i] ^ (number * 0x9E3779B97F4A7C15U + i);
    if (wrong != 0)
        throw std::runtime_error("message " + std::to_string(number) +
                                 " arrived torn, twice or out of order");
}

void stayOn(int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    sched_setaffinity(0, sizeof set, &set);
}

/// Runs one end in a process of its own; the process ends with 0 when it did not throw.
template <class Body>
pid_t inChild(Body body) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        try {
            body();
        } catch (const std::exception& e) {
            std::fprintf(stderr, "bench: sender: %s\n", e.what());
            _exit(1);
        }
        _exit(0);
    }
    return child;
}

void oneWay(const TransportKind& kind, std::size_t size, int round, std::uint64_t messages) {
    const auto pTransport = kind.make(size);
    void* pMemory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto* pShared = new (pMemory) Shared{};
    const std::size_t words = size / sizeof(std::uint64_t);
    const pid_t child = inChild([&] {
        pTransport->openSender();
        std::uint64_t message[g_longest / sizeof(std::uint64_t)];
        const double cpu = cpuSeconds();
        pShared->firstSent = Clock::now();
        for (std::uint64_t number = 0; number < messages; ++number) {
            fill(message, words, number);
            pTransport->send(message, size);
        }
        pShared->senderCpu = cpuSeconds() - cpu;
        // Stays until the receiver has everything: some transports need both ends.
        pause();
    });
    pTransport->openReceiver();
    const double cpu = cpuSeconds();
    std::uint64_t message[g_longest / sizeof(std::uint64_t)];
    for (std::uint64_t number = 0; number < messages; ++number) {
        pTransport->receive(message, size);
        check(message, words, number);
    }
    const auto end = Clock::now();
    const double receiverCpu = cpuSeconds() - cpu;
    // The sender notes its time behind its last message.
    for (int i = 0; i < 1000 && static_cast<volatile Shared*>(pShared)->senderCpu == 0; ++i)
        usleep(1000);
    const double seconds = std::chrono::duration<double>(end - pShared->firstSent).count();
    std::printf(
        "{\"work\": \"one way\", \"transport\": \"%s\", \"size\": %zu, \"round\": %d, \"rate\": %.0f, "
        "\"cpu\": %.4f}\n",
        kind.name.c_str(), size, round, static_cast<double>(messages) / seconds,
        (receiverCpu + pShared->senderCpu) * 1e6 / static_cast<double>(messages));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    munmap(pMemory, sizeof(Shared));
}

void roundTrip(const TransportKind& kind, bool onOneCore, int round, int trips) {
    constexpr std::size_t size = 32;
    const auto pThere = kind.make(size);
    const auto pBack = kind.make(size);
    constexpr std::size_t words = size / sizeof(std::uint64_t);
    const pid_t child = inChild([&] {
        if (onOneCore)
            stayOn(0);
        pBack->openSender();
        pThere->openReceiver();
        std::uint64_t message[words];
        for (int trip = 0; trip < trips; ++trip) {
            pThere->receive(message, size);
            pBack->send(message, size);
        }
        pause();
    });
    cpu_set_t before;
    sched_getaffinity(0, sizeof before, &before);
    if (onOneCore)
        stayOn(0);
    pThere->openSender();
    pBack->openReceiver();
    std::uint64_t message[words];
    std::vector<double> micros;
    micros.reserve(static_cast<std::size_t>(trips));
    for (int trip = 0; trip < trips; ++trip) {
        fill(message, words, static_cast<std::uint64_t>(trip));
        const auto begin = Clock::now();
        pThere->send(message, size);
        pBack->receive(message, size);
        micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
        check(message, words, static_cast<std::uint64_t>(trip));
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    sched_setaffinity(0, sizeof before, &before);
    std::sort(micros.begin(), micros.end());
    std::printf(
        "{\"work\": \"round trip\", \"transport\": \"%s\", \"cores\": %d, \"round\": %d, \"p50_us\": "
        "%.2f, \"p99_us\": %.2f, \"p999_us\": %.2f}\n",
        kind.name.c_str(), onOneCore ? 1 : 2, round, micros[micros.size() / 2],
        micros[micros.size() * 99 / 100], micros[micros.size() * 999 / 1000]);
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 5;
    const auto messages = static_cast<std::uint64_t>(argc > 2 ? std::atoll(argv[2]) : 400000);
    const int trips = argc > 3 ? std::atoi(argv[3]) : 20000;
    const std::string only = argc > 4 ? argv[4] : "";
    if (rounds < 1 || messages < 1 || trips < 1) {
        std::fprintf(stderr, "usage: bench_queue [ROUNDS [MESSAGES [TRIPS [TRANSPORT]]]]\n");
        return 2;
    }
    const sal::LogManager log;
    const sal::HostQueueDirectory queues;
    std::vector<TransportKind> kinds{{"sal::MessageQueue", makeSalTransport},
                                     {"POSIX mq", makePosixMqTransport},
                                     {"Boost.Interprocess", makeBoostTransport},
                                     {"ZeroMQ", makeZeroMqTransport},
                                     {"pipe", makePipeTransport}};
    if (!only.empty())
        std::erase_if(kinds, [&](const TransportKind& kind) { return kind.name != only; });
    // One that hangs ends the run.
    alarm(1800);
    try {
        for (int round = 1; round <= rounds; ++round) {
            for (const std::size_t size : {32, 256, 1024})
                for (const TransportKind& kind : kinds)
                    oneWay(kind, size, round, messages);
            for (const bool onOneCore : {true, false})
                for (const TransportKind& kind : kinds)
                    roundTrip(kind, onOneCore, round, trips);
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench: %s\n", e.what());
        return 1;
    }
    return 0;
}
