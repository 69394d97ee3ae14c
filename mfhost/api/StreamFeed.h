#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "ApiContext.h"
#include "ApiTarget.h"
#include "IAnswerBody.h"
#include "JoinedGaps.h"
#include "StreamFilter.h"

/// What one client of GET /api/v1/stream is sent: the records that it asks for as JSON, one on a line, read
/// from the rings with a cursor of its own. A client that is too slow finds a gap there that says how many it
/// missed; nothing waits for it. Owned by its connection; API thread.
class StreamFeed final : public IAnswerBody {
public:
    static constexpr const char* s_contentType = "application/x-ndjson";
    /// Of the parameter "last".
    static constexpr std::uint64_t s_mostLast = 10'000;
    /// After so long with nothing to say it says where the client is to go on.
    static constexpr std::chrono::seconds s_heartbeat{10};

    /// An ApiFault says that nothing is recorded here, or which parameter is wrong.
    static std::shared_ptr<IAnswerBody> open(const ApiContext& context, const ApiTarget& target);

    Piece next() override;

private:
    struct Choice {
        stream::StreamFilter filter;
        stream::StreamCursor from;
        std::uint64_t last = 0;   ///< so many of what is there; 0: all from the place on
        std::uint32_t level = 0;  ///< of log lines, the least urgent; 0: all
        bool follows = true;
        bool hasLines = false;  ///< each record also as a line for people
    };
    StreamFeed(const RecordedStream& recorded, Choice choice, std::unique_ptr<stream::StreamReader> pReader,
               bool isRestarted);
    static Choice choiceOf(const ApiTarget& target);

    bool isWanted(const stream::StreamRecord& record) const;
    void sayHello();
    void beat();
    void addRecord();
    void addGap();
    void put(std::string json, const std::string& line);
    /// Reads what is there; false where its time was over before.
    bool read();

    const RecordedStream& m_recorded;
    const Choice m_choice;
    stream::JoinedGaps m_reader;
    const bool m_isRestarted;
    const std::uint64_t m_end;  ///< the last number that there was at the beginning
    bool m_isBegun = false;
    std::chrono::steady_clock::time_point m_lastPiece;
    bool m_hasEnded = false;
    bool m_isTail;  ///< only the last ones are kept, until all is read that there was
    std::deque<std::string> m_lines;
};
