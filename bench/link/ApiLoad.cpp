#include "ApiLoad.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "Patience.h"

/// What this process and the asking one share.
struct ApiLoad::Board {
    std::atomic<bool> isReady = false;
    std::atomic<bool> isOver = false;
    std::atomic<bool> isDone = false;
    char error[512] = "";
    Answers answers;
};

void ApiLoad::Unmap::operator()(Board* pBoard) const {
    munmap(pBoard, sizeof(Board));
}

ApiLoad::BoardPtr ApiLoad::makeBoard() {
    void* pMemory = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (pMemory == MAP_FAILED)
        throw std::system_error(errno, std::generic_category(), "mmap");
    return BoardPtr(new (pMemory) Board);
}

void ApiLoad::run(Board& board, Load::Settings settings) {
    settings.isOver = [&board] { return board.isOver.load(); };
    settings.seconds = 3600;
    try {
        Load load(std::move(settings));
        board.isReady = true;
        const Load::Result result = load.run();
        const std::vector<double>& all = result.microseconds;
        const auto part = [&all](double share) {
            return all.empty() ? 0
                               : all[static_cast<std::size_t>(share * static_cast<double>(all.size() - 1))];
        };
        board.answers = {
            result.answered, result.failed, static_cast<double>(result.answered) / result.seconds,
            part(0.5),       part(0.99),    part(1)};
        if (result.failed > 0)
            std::fprintf(stderr, "bench: the first request that failed: %s\n", result.firstFailure.c_str());
    } catch (const std::exception& e) {
        std::strncpy(board.error, e.what(), sizeof board.error - 1);
    }
    board.isReady = board.isDone = true;
}

ApiLoad::ApiLoad(Load::Settings settings)
    : m_pBoard(makeBoard()), m_process([this, &settings] { run(*m_pBoard, settings); }) {
    waitUntil("the connections", [this] { return m_pBoard->isReady.load(); });
    if (m_pBoard->error[0] != '\0')
        throw std::runtime_error(m_pBoard->error);
}

ApiLoad::Answers ApiLoad::end() {
    m_pBoard->isOver = true;
    waitUntil("the last answers", [this] { return m_pBoard->isDone.load(); });
    if (m_pBoard->error[0] != '\0')
        throw std::runtime_error(m_pBoard->error);
    return m_pBoard->answers;
}
