#pragma once

#include <chrono>
#include <cstddef>

/// What one user, one connection and all of them together may take of the API thread.
struct HttpLimits {
    std::size_t connections = 64;
    std::size_t connectionsOfUser = 8;   ///< who is neither root nor the starter
    std::size_t connectionsKept = 8;     ///< of the 64, for root and the starter alone
    std::size_t connectionsRefused = 8;  ///< that wait to be told that they may do nothing

    std::size_t target = 8 * 1024;
    std::size_t header = 16 * 1024;
    std::size_t body = 64 * 1024;

    unsigned requestsPerSecond = 1000;  ///< of all connections
    std::size_t requestsUnderway = 8;   ///< of one connection
    /// Bytes of answers that one connection has not taken yet and that still let it begin a request.
    std::size_t unsent = 256 * 1024;
    std::size_t unsentInAll = 64 * 1024 * 1024;

    std::chrono::milliseconds headerTime{20'000};
    std::chrono::milliseconds bodyTime{20'000};
    std::chrono::milliseconds idleTime{60'000};
    std::chrono::milliseconds writeTime{20'000};  ///< without any progress
    std::chrono::milliseconds lingerTime{1'000};  ///< for what a client still sends after its last answer
    /// Of an answer that comes in pieces: until it is asked for the next one where there was nothing more,
    /// and where there was, which leaves room for others.
    std::chrono::milliseconds pieceStep{50};
    std::chrono::milliseconds pieceTurn{5};
    std::chrono::milliseconds refusedPause{100};  ///< of a connection that has asked too often
    std::chrono::milliseconds acceptPause{100};   ///< when there is no descriptor for a connection
};
