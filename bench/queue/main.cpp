// The queue beside what one would pick instead: one way and there and back, between two processes, both
// started for the one measurement. The transports take turns within a round; every message is checked. One
// JSON object a line on standard output:
// {"work": ..., "transport": ..., "size": bytes, "round": n, "rate": messages a second, "cpu": seconds of
// both processes for a million messages} and {"work": "round trip", ..., "p50_us": ..., "p99_us": ...}.

#include <sched.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/prctl.h>
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

#include "JobLength.h"
#include "Semaphore.h"
#include "Transport.h"
#include "sal/HostQueueDirectory.h"
#include "sal/LogManager.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t g_longest = 1024;

/// What the two processes of a measurement tell each other.
struct Shared {
    sem_t go;    ///< the receiver: so many messages are to be sent
    sem_t sent;  ///< the sender: they are, and the rest is noted
    std::uint64_t messages;
    Clock::time_point firstSent;
    double senderCpu;
};

class SharedMemory {
public:
    SharedMemory() {
        void* pMemory =
            mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (pMemory == MAP_FAILED)
            throw std::runtime_error("no shared memory");
        m_pShared = new (pMemory) Shared{};
        sem_init(&m_pShared->go, 1, 0);
        sem_init(&m_pShared->sent, 1, 0);
    }
    ~SharedMemory() { munmap(m_pShared, sizeof(Shared)); }
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    Shared* operator->() const { return m_pShared; }

private:
    Shared* m_pShared;
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

/// Runs a body in a process of its own, which ends with 0 when the body did not throw, and with this one.
template <class Body>
pid_t inChild(Body body) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        try {
            body();
        } catch (const std::exception& e) {
            std::fprintf(stderr, "bench: %s\n", e.what());
            _exit(1);
        }
        std::fflush(nullptr);
        _exit(0);
    }
    return child;
}

/// A measurement in a process that has done nothing before.
template <class Body>
void measure(Body body) {
    const pid_t child = inChild([&] {
        const sal::LogManager log;
        const sal::HostQueueDirectory queues;
        body();
    });
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0)
        throw std::runtime_error("a measurement has failed");
}

void sendOneWay(Transport& transport, const SharedMemory& shared, std::size_t size) {
    const std::size_t words = size / sizeof(std::uint64_t);
    transport.openSender();
    std::uint64_t message[g_longest / sizeof(std::uint64_t)];
    // Stays until it is killed: some transports need both ends.
    for (;;) {
        await(shared->go);
        const double cpu = cpuSeconds();
        shared->firstSent = Clock::now();
        for (std::uint64_t number = 0; number < shared->messages; ++number) {
            fill(message, words, number);
            transport.send(message, size);
        }
        shared->senderCpu = cpuSeconds() - cpu;
        sem_post(&shared->sent);
    }
}

void oneWay(const TransportKind& kind, std::size_t size, int round, double seconds) {
    const auto pTransport = kind.make(size);
    const SharedMemory shared;
    const pid_t child = inChild([&] { sendOneWay(*pTransport, shared, size); });
    pTransport->openReceiver();
    const std::size_t words = size / sizeof(std::uint64_t);
    std::uint64_t message[g_longest / sizeof(std::uint64_t)];
    for (JobLength length(seconds);;) {
        const std::uint64_t messages = length.count();
        shared->messages = messages;
        const double cpu = cpuSeconds();
        sem_post(&shared->go);
        for (std::uint64_t number = 0; number < messages; ++number) {
            pTransport->receive(message, size);
            check(message, words, number);
        }
        const auto end = Clock::now();
        const double receiverCpu = cpuSeconds() - cpu;
        await(shared->sent);
        const double taken = std::chrono::duration<double>(end - shared->firstSent).count();
        if (!length.isEnough(taken))
            continue;
        std::printf(
            "{\"work\": \"one way\", \"transport\": \"%s\", \"size\": %zu, \"round\": %d, \"rate\": %.0f, "
            "\"cpu\": %.4f, \"seconds\": %.3f}\n",
            kind.name.c_str(), size, round, static_cast<double>(messages) / taken,
            (receiverCpu + shared->senderCpu) * 1e6 / static_cast<double>(messages), taken);
        break;
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

void roundTrip(const TransportKind& kind, bool onOneCore, int round, double seconds) {
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
        for (;;) {
            pThere->receive(message, size);
            pBack->send(message, size);
        }
    });
    if (onOneCore)
        stayOn(0);
    pThere->openSender();
    pBack->openReceiver();
    std::uint64_t message[words];
    std::vector<double> micros;
    micros.reserve(1'000'000);
    const auto second = std::chrono::duration<double>(1);
    const auto warmUntil = Clock::now() + std::chrono::duration_cast<Clock::duration>(second * seconds / 2);
    const auto end = warmUntil + std::chrono::duration_cast<Clock::duration>(second * seconds);
    auto now = Clock::now();
    for (std::uint64_t trip = 0; now < end; ++trip) {
        fill(message, words, trip);
        const auto begin = Clock::now();
        pThere->send(message, size);
        pBack->receive(message, size);
        now = Clock::now();
        if (begin >= warmUntil)
            micros.push_back(std::chrono::duration<double, std::micro>(now - begin).count());
        check(message, words, trip);
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
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
    const double seconds = argc > 2 ? std::atof(argv[2]) : 1;
    const std::string only = argc > 3 ? argv[3] : "";
    if (rounds < 1 || seconds <= 0) {
        std::fprintf(stderr, "usage: bench_queue [ROUNDS [SECONDS [TRANSPORT]]]\n");
        return 2;
    }
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
                    measure([&] { oneWay(kind, size, round, seconds); });
            for (const bool onOneCore : {true, false})
                for (const TransportKind& kind : kinds)
                    measure([&] { roundTrip(kind, onOneCore, round, seconds); });
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench: %s\n", e.what());
        return 1;
    }
    return 0;
}
