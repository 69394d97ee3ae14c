#include "PeerRun.h"

#include <semaphore.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "Affinity.h"
#include "ChildProcess.h"
#include "CpuClock.h"
#include "UpdateSeries.h"

namespace {

constexpr int g_patience = 120;  ///< seconds

/// What the processes of one run share.
struct Board {
    sem_t ready;
    sem_t go;
    sem_t done;
    char error[512];
    std::int64_t first;
    std::int64_t last;
    std::uint64_t wrong;
    std::uint64_t times;
    std::uint32_t time[1];  ///< as many as there is room for
};

class SharedBoard {
public:
    explicit SharedBoard(std::size_t times) : m_size(sizeof(Board) + times * sizeof(std::uint32_t)) {
        void* pMemory = mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (pMemory == MAP_FAILED)
            throw std::system_error(errno, std::generic_category(), "mmap");
        m_pBoard = new (pMemory) Board{};
        for (sem_t* pSemaphore : {&m_pBoard->ready, &m_pBoard->go, &m_pBoard->done})
            sem_init(pSemaphore, 1, 0);
    }
    ~SharedBoard() { munmap(m_pBoard, m_size); }
    SharedBoard(const SharedBoard&) = delete;
    SharedBoard& operator=(const SharedBoard&) = delete;

    Board* operator->() const { return m_pBoard; }

    /// Until somebody posts; throws what a child noted, and when nobody posts in time.
    void wait(sem_t& semaphore, const std::string& name) const {
        timespec until{};
        clock_gettime(CLOCK_REALTIME, &until);
        until.tv_sec += g_patience;
        int result = 0;
        do {
            result = sem_timedwait(&semaphore, &until);
        } while (result != 0 && errno == EINTR);
        if (m_pBoard->error[0] != '\0')
            throw std::runtime_error(name + ": " + m_pBoard->error);
        if (result != 0)
            throw std::runtime_error(name + ": nothing came in time");
    }

    /// A child with this body; what it throws is noted.
    template <class Body>
    ChildProcess child(int cores, Body body) const {
        return ChildProcess([this, cores, &body] {
            if (cores > 0)
                Affinity::set(cores);
            try {
                body();
            } catch (const std::exception& e) {
                std::strncpy(m_pBoard->error, e.what(), sizeof m_pBoard->error - 1);
                sem_post(&m_pBoard->ready);
                sem_post(&m_pBoard->done);
            }
        });
    }

    void noteTimes(const std::vector<std::uint32_t>& times) const {
        m_pBoard->times = times.size();
        std::memcpy(m_pBoard->time, times.data(), times.size() * sizeof times.front());
    }
    std::vector<std::uint32_t> times() const { return {m_pBoard->time, m_pBoard->time + m_pBoard->times}; }

private:
    std::size_t m_size;
    Board* m_pBoard;
};

}  // namespace

PeerRun::PeerRun(std::string directory, const Results& results)
    : m_directory(std::move(directory)), m_results(results) {
    std::filesystem::create_directories(m_directory);
}

void PeerRun::updates(const UpdatePeerKind& kind, const Job& job, int round, bool isSweep) const {
    const SharedBoard board(job.kind == Job::ePaced ? job.count : 0);
    const std::unique_ptr<UpdatePeer> pPeer = kind.make(m_directory);
    const ChildProcess receiver = board.child(0, [&] {
        const auto pTarget = std::make_unique<PanelTarget>();
        pTarget->expect(0, job);
        pPeer->receive(*pTarget, [&] { sem_post(&board->ready); });
        const UpdateCheck& check = pTarget->check(0);
        board->last = check.last();
        board->wrong = check.wrong();
        if (job.kind == Job::ePaced)
            board.noteTimes(check.ages());
        sem_post(&board->done);
    });
    board.wait(board->ready, kind.name);
    const ChildProcess sender = board.child(0, [&] {
        pPeer->send(job, [&] {
            sem_post(&board->ready);
            while (sem_wait(&board->go) != 0) {
            }
            board->first = UpdateSeries::now();
        });
    });
    board.wait(board->ready, kind.name);
    std::vector<pid_t> processes = pPeer->helpers();
    processes.insert(processes.end(), {receiver.pid(), sender.pid()});
    const CpuClock cpu(processes);
    sem_post(&board->go);
    board.wait(board->done, kind.name);
    const double used = cpu.seconds();
    if (board->wrong > 0)
        throw std::runtime_error(kind.name + ": " + std::to_string(board->wrong) + " messages were wrong");

    const auto count = static_cast<double>(job.count);
    const double rate = count * 1e9 / static_cast<double>(board->last - board->first);
    if (job.kind == Job::ePaced)
        m_results.addTimes("latency", kind.name, round, {}, board.times());
    else if (isSweep)
        m_results.add("sizes", kind.name, round,
                      {{"name_bytes", static_cast<double>(job.nameSize)},
                       {"value_bytes", static_cast<double>(job.valueSize)},
                       {"rate", rate}});
    else
        m_results.add(Job::name(job.kind), kind.name, round,
                      {{"rate", rate}, {"cpu_per_100k", used * 1e5 / count}});
}

void PeerRun::trips(const TripPeerKind& kind, unsigned int trips, int cores, int round) const {
    const SharedBoard board(trips);
    const std::unique_ptr<TripPeer> pPeer = kind.make(m_directory);
    const auto ready = [&] { sem_post(&board->ready); };
    const ChildProcess relay = board.child(cores, [&] { pPeer->relay(ready); });
    board.wait(board->ready, kind.name);
    const ChildProcess answering = board.child(cores, [&] { pPeer->answer(ready); });
    board.wait(board->ready, kind.name);
    const ChildProcess asking = board.child(cores, [&] {
        pPeer->openAsking();
        std::vector<std::uint32_t> times;
        times.reserve(trips);
        const unsigned int warmUp = trips / 10;
        for (unsigned int number = 0; number < trips + warmUp; ++number) {
            const std::int64_t begin = UpdateSeries::now();
            pPeer->ask(number);
            if (number >= warmUp)
                times.push_back(static_cast<std::uint32_t>(UpdateSeries::now() - begin));
        }
        board.noteTimes(times);
        sem_post(&board->done);
    });
    board.wait(board->done, kind.name);
    m_results.addTimes("trips", kind.name, round, {{"cores", cores}}, board.times());
}
