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
#include "JobLength.h"
#include "Semaphore.h"
#include "UpdateFigures.h"
#include "UpdateSeries.h"

namespace {

constexpr int g_patience = 120;  ///< seconds
/// More than are measured; what is not used takes no memory.
constexpr std::size_t g_mostTimes = 4'000'000;

/// What the processes of one run share.
struct Board {
    sem_t ready;
    sem_t expect;
    sem_t go;
    sem_t done;
    char error[512];
    Job job;
    std::int64_t first;
    std::int64_t last;
    std::uint64_t wrong;
    std::uint64_t delivered;
    std::uint64_t times;
    std::uint32_t time[1];  ///< as many as there is room for
};

class SharedBoard {
public:
    explicit SharedBoard(std::size_t times)
        : m_room(times), m_size(sizeof(Board) + times * sizeof(std::uint32_t)) {
        void* pMemory = mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (pMemory == MAP_FAILED)
            throw std::system_error(errno, std::generic_category(), "mmap");
        m_pBoard = new (pMemory) Board{};
        for (sem_t* pSemaphore : {&m_pBoard->ready, &m_pBoard->expect, &m_pBoard->go, &m_pBoard->done})
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
        if (times.size() > m_room)
            throw std::runtime_error("more times than there is room for");
        m_pBoard->times = times.size();
        std::memcpy(m_pBoard->time, times.data(), times.size() * sizeof times.front());
    }
    std::vector<std::uint32_t> times() const { return {m_pBoard->time, m_pBoard->time + m_pBoard->times}; }

private:
    std::size_t m_room;
    std::size_t m_size;
    Board* m_pBoard;
};

}  // namespace

PeerRun::PeerRun(std::string directory, const Results& results)
    : m_directory(std::move(directory)), m_results(results) {
    std::filesystem::create_directories(m_directory);
}

void PeerRun::updates(const UpdatePeerKind& kind, Job job, double seconds, int round) const {
    const SharedBoard board(job.kind == Job::EKind::Paced ? g_mostTimes : 0);
    JobLength length(seconds, job.isInBursts ? BurstGate::s_size : 1);
    job.count = length.count();
    board->job = job;
    const std::string gateFile = m_directory + "/gate";
    BurstGate gate(gateFile);
    std::filesystem::remove(gateFile);
    const std::unique_ptr<UpdatePeer> pPeer = kind.make(m_directory);
    const ChildProcess receiver = board.child(0, [&] {
        const auto pTarget = std::make_unique<PanelTarget>();
        const auto expect = [&] { pTarget->expect(0, board->job, board->job.isInBursts ? &gate : nullptr); };
        expect();
        pPeer->receive(
            *pTarget, [&] { sem_post(&board->ready); },
            [&] {
                const UpdateCheck& check = pTarget->check(0);
                board->last = check.last();
                board->wrong = check.wrong();
                board->delivered = check.count();
                board.noteTimes(check.ages());
                sem_post(&board->done);
                await(board->expect);
                expect();
                sem_post(&board->ready);
            });
    });
    board.wait(board->ready, kind.name);
    const ChildProcess sender = board.child(0, [&] {
        bool isOpen = false;
        pPeer->send(
            [&] {
                if (!std::exchange(isOpen, true))
                    sem_post(&board->ready);
                await(board->go);
                board->first = UpdateSeries::now();
                return board->job;
            },
            gate);
    });
    board.wait(board->ready, kind.name);
    std::vector<pid_t> processes = pPeer->helpers();
    processes.insert(processes.end(), {receiver.pid(), sender.pid()});
    for (;;) {
        const CpuClock cpu(processes);
        sem_post(&board->go);
        board.wait(board->done, kind.name);
        const double used = cpu.seconds();
        if (board->wrong > 0)
            throw std::runtime_error(kind.name + ": " + std::to_string(board->wrong) +
                                     " messages were wrong");
        const double taken = static_cast<double>(board->last - board->first) / 1e9;
        if (length.isEnough(taken)) {
            UpdateFigures{job, taken, used, board->delivered, board.times()}.add(m_results, kind.name, round);
            return;
        }
        job.count = length.count();
        board->job = job;
        sem_post(&board->expect);
        board.wait(board->ready, kind.name);
    }
}

void PeerRun::trips(const TripPeerKind& kind, double seconds, int cores, int round) const {
    const SharedBoard board(g_mostTimes);
    const std::unique_ptr<TripPeer> pPeer = kind.make(m_directory);
    const auto ready = [&] { sem_post(&board->ready); };
    const ChildProcess relay = board.child(cores, [&] { pPeer->relay(ready); });
    board.wait(board->ready, kind.name);
    const ChildProcess answering = board.child(cores, [&] { pPeer->answer(ready); });
    board.wait(board->ready, kind.name);
    const ChildProcess asking = board.child(cores, [&] {
        pPeer->openAsking();
        std::vector<std::uint32_t> times;
        times.reserve(1'000'000);
        const auto nanoseconds = static_cast<std::int64_t>(seconds * 1e9);
        const std::int64_t warmUntil = UpdateSeries::now() + nanoseconds / 2;
        const std::int64_t end = warmUntil + nanoseconds;
        std::int64_t now = UpdateSeries::now();
        for (unsigned int number = 0; now < end; ++number) {
            const std::int64_t begin = UpdateSeries::now();
            pPeer->ask(number);
            now = UpdateSeries::now();
            if (begin >= warmUntil)
                times.push_back(static_cast<std::uint32_t>(now - begin));
        }
        board.noteTimes(times);
        sem_post(&board->done);
    });
    board.wait(board->done, kind.name);
    m_results.addTimes("trips", kind.name, round, {{"cores", cores}}, board.times());
}
