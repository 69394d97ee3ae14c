#pragma once

#include <poll.h>

#include <algorithm>
#include <array>
#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "AnswerHead.h"
#include "AnswerOnce.h"
#include "ApiFault.h"
#include "HttpReader.h"
#include "IHttpSessionOwner.h"

// What a session does with its stream beside reading and writing. A stream of another kind has its own.

template <class Protocol, class Executor>
void endSending(boost::asio::basic_stream_socket<Protocol, Executor>& socket) {
    boost::system::error_code ignored;
    socket.shutdown(boost::asio::socket_base::shutdown_send, ignored);
}

template <class Protocol, class Executor>
void closeStream(boost::asio::basic_stream_socket<Protocol, Executor>& socket) {
    boost::system::error_code ignored;
    socket.close(ignored);
}

/// Whether the other end is gone altogether, not only done with sending.
template <class Protocol, class Executor>
bool isHungUp(boost::asio::basic_stream_socket<Protocol, Executor>& socket) {
    pollfd status{socket.native_handle(), 0, 0};
    return ::poll(&status, 1, 0) == 1 && (status.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

// One that lies round another stream, such as that of TLS.

template <class Stream>
concept LayeredStream = requires(Stream& stream) {
    stream.next_layer();
};

template <LayeredStream Stream>
void endSending(Stream& stream) {
    endSending(stream.next_layer());
}

template <LayeredStream Stream>
void closeStream(Stream& stream) {
    closeStream(stream.next_layer());
}

template <LayeredStream Stream>
bool isHungUp(Stream& stream) {
    return isHungUp(stream.next_layer());
}

/// One connection: takes its requests in order, has them handled, and writes the answers in the order of the
/// requests, whenever and from whichever thread they come. Requests that change nothing are handled side by
/// side; one that changes something waits for those before it, and those after it wait for it. Made by
/// ApiServer, kept by it and by what is under way; API thread. Stream is a socket, or what is put round one.
template <class Stream>
class HttpSession final : public std::enable_shared_from_this<HttpSession<Stream>> {
public:
    /// Takes over the connection of a request for a WebSocket, or says why not.
    using TakeOver = std::function<std::optional<ApiAnswer>(Stream& stream, const HttpRequest& request)>;

    /// All requests are answered with the refusal, if there is one, and the first ends the connection.
    /// Without takeOver there are no WebSockets.
    HttpSession(Stream stream, IHttpSessionOwner& owner, ApiCaller caller, std::optional<ApiAnswer> refusal,
                TakeOver takeOver = {})
        : m_stream(std::move(stream)),
          m_timer(m_stream.get_executor()),
          m_owner(owner),
          m_limits(owner.limits()),
          m_caller(std::move(caller)),
          m_refusal(std::move(refusal)),
          m_takeOver(std::move(takeOver)),
          m_reader(m_limits),
          m_phaseBegin(Clock::now()) {}

    /// Once the owner holds it.
    void start() { goOn(); }

    /// Answers what waits for an answer that the host stops, and closes after that.
    void stop() {
        m_takesNoMore = true;
        m_next.reset();
        if (m_entries.empty()) {
            close();
            return;
        }
        m_entries.back().closes = true;
        for (Entry& entry : m_entries) {
            // One that comes in pieces ends with the next one.
            entry.isEnding = true;
            if (!entry.isAnswered)
                fill(entry, ApiFault(ECode::Stopping,
                                     entry.isSafe ? "the host is shutting down"
                                                  : "the host is shutting down; whether this was done is not "
                                                    "known"));
        }
        goOn();
    }

    /// At once; what was not written is gone.
    void close() {
        if (m_isClosed)
            return;
        m_isClosed = true;
        while (!m_entries.empty())
            dropFront();
        m_timer.cancel();
        closeStream(m_stream);
        m_owner.ended(m_caller.session);
    }

    /// Whether nothing is under way: no answer is owed, and of the next request nothing has come.
    bool isIdle() const {
        return m_entries.empty() && !m_next && m_input.empty() &&
               m_reader.state() == HttpReader::EState::Between;
    }

private:
    using Clock = std::chrono::steady_clock;
    using Time = std::optional<Clock::time_point>;
    using ECode = ApiFault::ECode;

    /// A request that was begun, and its answer once that is there.
    struct Entry {
        std::uint64_t number = 0;
        bool isAnswered = false;
        bool isSafe = true;
        bool isHead = false;
        bool isVersion10 = false;
        bool isEnding = false;
        bool closes = false;
        std::string head = {};
        std::string body = {};
        std::shared_ptr<IAnswerBody> pMore = {};  ///< what comes after the body
    };

    std::shared_ptr<HttpSession> self() { return this->shared_from_this(); }

    /// Does all that can be done now.
    void goOn() {
        beginRequests();
        if (m_hasInputEnded && m_entries.empty() && !m_next && !m_pausedUntil && !m_isTurnDue)
            close();
        read();
        write();
        setTimer();
    }

    // --- from the bytes to the requests

    void read() {
        if (m_isClosed || m_isReading || m_hasInputEnded || m_input.size() > m_limits.header)
            return;
        m_isReading = true;
        m_stream.async_read_some(
            boost::asio::buffer(m_piece),
            [session = self()](const boost::system::error_code& error, std::size_t count) {
                session->m_isReading = false;
                if (!session->m_isClosed)
                    session->take(error, count);
            });
    }

    void take(const boost::system::error_code& error, std::size_t count) {
        if (m_isLingering) {
            m_lingered += count;
            if (error || m_lingered > s_longestLinger)
                close();
            read();
            return;
        }
        if (error) {
            m_hasInputEnded = true;
            if (isHungUp(m_stream)) {
                close();
                return;
            }
        }
        m_input.append(m_piece.data(), count);
        goOn();
    }

    /// One at a time: some take milliseconds, and between two of one client all others have their turn.
    void beginRequests() {
        if (m_isTurnDue || m_isClosed || m_takesNoMore || m_pausedUntil || !(m_next || readRequest()) ||
            !mayBegin(*m_next))
            return;
        HttpRequest request = std::move(*m_next);
        m_next.reset();
        begin(std::move(request));
        if (m_isClosed)
            return;
        m_isTurnDue = true;
        boost::asio::post(m_stream.get_executor(), [session = self()] {
            session->m_isTurnDue = false;
            if (!session->m_isClosed && !session->m_isLingering)
                session->goOn();
        });
    }

    /// Whether there is a whole one.
    bool readRequest() {
        const HttpReader::EState before = m_reader.state();
        m_input.erase(0, m_reader.read(m_input));
        if (m_reader.state() != before)
            m_phaseBegin = Clock::now();
        switch (m_reader.state()) {
            case HttpReader::EState::Complete:
                m_next = m_reader.take();
                m_phaseBegin = Clock::now();
                m_isToldToContinue = false;
                return true;
            case HttpReader::EState::Failed:
                fail(m_reader.fault());
                return false;
            case HttpReader::EState::Body:
                if (!m_hasInputEnded && !m_isToldToContinue && m_reader.expectsContinue())
                    tellToContinue();
                break;
            default:
                break;
        }
        if (m_hasInputEnded && m_reader.state() != HttpReader::EState::Between)
            fail(ApiFault(ECode::RequestInvalid, "the connection ended in the middle of a request"));
        return false;
    }

    void tellToContinue() {
        m_isToldToContinue = true;
        Entry& entry = addEntry();
        entry.isAnswered = true;
        entry.head = "HTTP/1.1 100 Continue\r\n\r\n";
        countUnsent(entry);
    }

    bool mayBegin(const HttpRequest& request) const {
        if (m_entries.size() >= m_limits.requestsUnderway || m_unsent > m_limits.unsent)
            return false;
        for (const Entry& entry : m_entries) {
            if (!entry.isAnswered && !(entry.isSafe && request.isSafe()))
                return false;
        }
        return true;
    }

    void begin(HttpRequest request) {
        Entry& entry = addEntry();
        entry.isSafe = request.isSafe();
        entry.isHead = request.method == "HEAD";
        entry.isVersion10 = request.isVersion10;
        entry.closes = m_takesNoMore = m_refusal || !request.isKeptAlive;
        if (m_refusal) {
            fill(entry, *m_refusal);
        } else if (!m_owner.takeRequest(m_caller, request)) {
            fill(entry,
                 ApiFault(ECode::TooMany, "the host takes " + std::to_string(m_limits.requestsPerSecond) +
                                              " requests a second"));
            m_pausedUntil = Clock::now() + m_limits.refusedPause;
        } else if (m_owner.unsent() > m_limits.unsentInAll) {
            fill(entry, ApiFault(ECode::Busy, "too many answers wait for clients that do not take them"));
        } else if (m_takeOver && request.isWebSocket) {
            handOver(entry, request);
        } else {
            handle(entry.number, entry.isHead, std::move(request));
        }
    }

    /// Nothing of the stream may be under way then.
    void handOver(Entry& entry, const HttpRequest& request) {
        std::optional<ApiAnswer> refusal;
        if (entry.number > 0 || m_isReading || !m_input.empty())
            refusal = ApiFault(ECode::RequestInvalid,
                               "a WebSocket has a connection of its own, and waits for its answer")
                          .answer();
        else
            refusal = m_takeOver(m_stream, request);
        if (refusal) {
            fill(entry, *refusal);
            return;
        }
        // The owner has another one of that number now.
        m_isClosed = true;
        m_entries.clear();
        m_timer.cancel();
    }

    void handle(std::uint64_t number, bool isHead, HttpRequest request) {
        const auto pPending = std::make_shared<AnswerOnce>(
            [session = this->weak_from_this(), pDoor = m_owner.door(), number](ApiAnswer answer) {
                pDoor->post([session, number, given = std::move(answer)] {
                    if (const auto pSession = session.lock())
                        pSession->answer(number, given);
                });
            },
            ECode::Internal, "the host has dropped this request without an answer");
        if (isHead)
            request.method = "GET";
        m_owner.handle(std::move(request), m_caller,
                       [pPending](ApiAnswer answer) { pPending->give(std::move(answer)); });
    }

    // --- from the answers to the bytes

    Entry& addEntry() {
        m_entries.push_back({.number = m_nextNumber++});
        return m_entries.back();
    }

    void answer(std::uint64_t number, const ApiAnswer& answer) {
        if (m_entries.empty() || number < m_entries.front().number)
            return;
        Entry& entry = m_entries.at(number - m_entries.front().number);
        if (entry.isAnswered)
            return;
        fill(entry, answer);
        goOn();
    }

    void fill(Entry& entry, const ApiFault& fault) { fill(entry, fault.answer()); }
    void fill(Entry& entry, const ApiAnswer& answer) {
        entry.isAnswered = true;
        if (answer.pMore && entry.isVersion10)
            entry.closes = m_takesNoMore = true;
        entry.head = answerHead(answer, entry.closes, std::chrono::system_clock::now(), entry.isVersion10);
        if (!entry.isHead) {
            const bool isChunked = answer.pMore && !entry.isVersion10 && !answer.body.empty();
            entry.body = isChunked ? chunkOf(answer.body) : answer.body;
            entry.pMore = answer.pMore;
        }
        countUnsent(entry);
    }

    /// The next piece of the first answer takes the place of what is written of it; false where there is none
    /// for now.
    bool takePiece() {
        Entry& entry = m_entries.front();
        if (m_pieceAt && Clock::now() < *m_pieceAt)
            return false;
        const IAnswerBody::Piece piece = entry.isEnding ? IAnswerBody::Piece() : entry.pMore->next();
        const bool isLast = piece.next == IAnswerBody::ENext::End;
        m_pieceAt = Clock::now() +
                    (piece.next == IAnswerBody::ENext::Later ? m_limits.pieceStep : m_limits.pieceTurn);
        std::string text;
        if (entry.isVersion10) {
            text = piece.text;
        } else {
            if (!piece.text.empty())
                text = chunkOf(piece.text);
            if (isLast)
                text += "0\r\n\r\n";
        }
        if (isLast) {
            entry.pMore.reset();
            m_pieceAt.reset();
        }
        const std::size_t before = sizeOf(entry);
        m_unsent -= before;
        m_owner.unsent() -= before;
        m_written = 0;
        entry.head.clear();
        entry.body = std::move(text);
        countUnsent(entry);
        return isLast || !entry.body.empty();
    }

    static std::string chunkOf(const std::string& text) {
        std::array<char, 20> size{};
        const auto end = std::to_chars(size.data(), size.data() + size.size(), text.size(), 16).ptr;
        return std::string(size.data(), end) + "\r\n" + text + "\r\n";
    }

    /// The last answer of this connection.
    void fail(const ApiFault& fault) { fail(fault.answer()); }
    void fail(const ApiAnswer& answer) {
        m_takesNoMore = true;
        Entry& entry = addEntry();
        entry.closes = true;
        fill(entry, answer);
    }

    void countUnsent(const Entry& entry) {
        m_unsent += sizeOf(entry);
        m_owner.unsent() += sizeOf(entry);
    }
    static std::size_t sizeOf(const Entry& entry) { return entry.head.size() + entry.body.size(); }

    void dropFront() {
        const std::size_t size = sizeOf(m_entries.front());
        m_unsent -= size;
        m_owner.unsent() -= size;
        m_entries.pop_front();
        m_pieceAt.reset();
        m_written = 0;
    }

    void write() {
        if (m_isClosed || m_isWriting || m_entries.empty() || !m_entries.front().isAnswered)
            return;
        if (m_written == sizeOf(m_entries.front())) {
            if (!takePiece())
                return;
            if (sizeOf(m_entries.front()) == 0) {
                endFront();
                return;
            }
        }
        const Entry& entry = m_entries.front();
        const std::size_t ofHead = std::min(m_written, entry.head.size());
        const std::size_t ofBody = m_written - ofHead;
        const std::array<boost::asio::const_buffer, 2> rest{
            boost::asio::buffer(entry.head.data() + ofHead, entry.head.size() - ofHead),
            boost::asio::buffer(entry.body.data() + ofBody, entry.body.size() - ofBody)};
        m_isWriting = true;
        m_progress = Clock::now();
        m_stream.async_write_some(
            rest, [session = self()](const boost::system::error_code& error, std::size_t count) {
                session->m_isWriting = false;
                if (!session->m_isClosed)
                    session->written(error, count);
            });
    }

    void written(const boost::system::error_code& error, std::size_t count) {
        if (error) {
            close();
            return;
        }
        m_written += count;
        const Entry& entry = m_entries.front();
        if (m_written == sizeOf(entry) && !entry.pMore)
            endFront();
        else
            goOn();
    }

    /// All of it is written.
    void endFront() {
        const bool closes = m_entries.front().closes;
        dropFront();
        if (m_reader.state() == HttpReader::EState::Between) {
            m_hasAnswered = true;
            m_phaseBegin = Clock::now();
        }
        if (closes)
            linger();
        else
            goOn();
    }

    /// A client that is still sending gets to see the last answer before the connection ends.
    void linger() {
        m_isLingering = true;
        m_lingerEnd = Clock::now() + m_limits.lingerTime;
        m_input.clear();
        endSending(m_stream);
        if (m_hasInputEnded)
            close();
        read();
        setTimer();
    }

    // --- what takes too long

    Time readingEnd() const {
        if (m_takesNoMore || m_next || m_hasInputEnded)
            return std::nullopt;
        switch (m_reader.state()) {
            case HttpReader::EState::Header:
                return m_phaseBegin + m_limits.headerTime;
            case HttpReader::EState::Body:
                return m_phaseBegin + m_limits.bodyTime;
            default:
                if (!m_entries.empty() || m_pausedUntil)
                    return std::nullopt;
                return m_phaseBegin + (m_hasAnswered ? m_limits.idleTime : m_limits.headerTime);
        }
    }

    Time writingEnd() const { return m_isWriting ? Time(m_progress + m_limits.writeTime) : std::nullopt; }

    void setTimer() {
        if (m_isClosed)
            return;
        Time next = m_lingerEnd;
        for (const Time& time : {m_lingerEnd ? std::nullopt : readingEnd(), writingEnd(), m_pausedUntil,
                                 m_isWriting || m_lingerEnd ? std::nullopt : m_pieceAt}) {
            if (time && (!next || *time < *next))
                next = time;
        }
        // One that rings too early is set again then.
        if (!next || (m_timerEnd && *m_timerEnd <= *next))
            return;
        m_timerEnd = next;
        m_timer.expires_at(*next);
        m_timer.async_wait([session = self()](const boost::system::error_code& error) {
            if (!error && !session->m_isClosed)
                session->ring();
        });
    }

    void ring() {
        m_timerEnd.reset();
        const Clock::time_point now = Clock::now();
        const auto isOver = [now](const Time& time) { return time && *time <= now; };
        if (isOver(m_lingerEnd) || isOver(writingEnd())) {
            close();
            return;
        }
        if (isOver(m_pausedUntil))
            m_pausedUntil.reset();
        else if (!m_isLingering && isOver(readingEnd()))
            endReading();
        if (!m_isLingering)
            goOn();
        setTimer();
    }

    void endReading() {
        const auto seconds = [](std::chrono::milliseconds time) {
            return std::to_string(std::chrono::duration_cast<std::chrono::seconds>(time).count()) + " s";
        };
        if (m_reader.state() == HttpReader::EState::Between)
            close();
        else if (m_reader.state() == HttpReader::EState::Header)
            fail(ApiFault(ECode::TooSlow,
                          "the request's first lines took longer than " + seconds(m_limits.headerTime)));
        else
            fail(ApiFault(ECode::TooSlow,
                          "the request's body took longer than " + seconds(m_limits.bodyTime)));
    }

    /// More than that nobody means to have read.
    static constexpr std::size_t s_longestLinger = 256 * 1024;

    Stream m_stream;
    boost::asio::steady_timer m_timer;
    IHttpSessionOwner& m_owner;
    const HttpLimits& m_limits;
    const ApiCaller m_caller;
    const std::optional<ApiAnswer> m_refusal;
    const TakeOver m_takeOver;

    HttpReader m_reader;
    std::array<char, 8192> m_piece{};
    std::string m_input;                ///< read, and not yet a request
    std::optional<HttpRequest> m_next;  ///< that may not begin yet
    bool m_isReading = false;
    bool m_hasInputEnded = false;
    bool m_isToldToContinue = false;
    bool m_isTurnDue = false;    ///< the next request begins then
    bool m_takesNoMore = false;  ///< what was begun is answered, and that is all
    bool m_hasAnswered = false;
    Clock::time_point m_phaseBegin;  ///< of the reader's state, or the last answer
    Time m_pausedUntil;              ///< no request begins before

    std::deque<Entry> m_entries;  ///< with successive numbers
    std::uint64_t m_nextNumber = 0;
    std::size_t m_written = 0;  ///< of the first entry
    std::size_t m_unsent = 0;
    Time m_pieceAt;  ///< no further piece of the first entry is asked for before
    bool m_isWriting = false;
    Clock::time_point m_progress;  ///< of writing

    bool m_isLingering = false;
    std::size_t m_lingered = 0;
    Time m_lingerEnd;
    Time m_timerEnd;  ///< when the timer rings
    bool m_isClosed = false;
};
