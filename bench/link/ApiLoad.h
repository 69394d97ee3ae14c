#pragma once

#include <atomic>
#include <cstddef>
#include <memory>

#include "ChildProcess.h"
#include "Load.h"

/// A steady load on a control socket, from a process of its own, for as long as the object lives or until it
/// is ended. Made while this process has one thread.
class ApiLoad {
public:
    struct Answers {
        std::size_t answered = 0;
        std::size_t failed = 0;
        double perSecond = 0;  ///< answered
        double p50 = 0;        ///< microseconds from when a request was due until it was answered
        double p99 = 0;
        double most = 0;
    };

    /// Returns when all connections are there; throws when that fails. How long it takes is not the
    /// settings'.
    explicit ApiLoad(Load::Settings settings);

    /// No more is asked; returns when everything is answered or has failed.
    Answers end();

private:
    struct Board;
    struct Unmap {
        void operator()(Board* pBoard) const;
    };
    using BoardPtr = std::unique_ptr<Board, Unmap>;

    static BoardPtr makeBoard();
    static void run(Board& board, Load::Settings settings);

    BoardPtr m_pBoard;
    ChildProcess m_process;
};
