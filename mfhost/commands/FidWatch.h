#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "DriverTable.h"
#include "FIDParameterList.h"
#include "FidOutcome.h"
#include "sal/MessageQueue.h"

/// Finds out what becomes of one FID: made before a thread sends it, asked after the send has returned, gone
/// before the thread sends another. What the thread sends besides, a macro's FIDs or those of the driver that
/// is called, is told apart by driver, function and depth. All on that thread, which FidTap tells of.
class FidWatch {
public:
    /// All three live as long as the watch.
    FidWatch(const DriverTable& drivers, const std::string& fid, const FIDParameterList& parameters);
    ~FidWatch();
    FidWatch(const FidWatch&) = delete;
    FidWatch& operator=(const FidWatch&) = delete;

    /// Nobody, Delivered or Written; the last is final only where no driver will ever take it.
    FidOutcome outcome() const;

    /// Why the FID does not fit into a message to a driver process, where what does not fit is left out;
    /// empty when it fits. Any thread.
    static std::string whyTooLong(const std::string& fid, const FIDParameterList& parameters);

    /// Where a message stands that was written.
    struct Place {
        std::string queue;
        std::chrono::steady_clock::time_point made;  ///< the queue was, as in its level
        std::uint32_t number = 0;                    ///< of the message in it

        /// Nothing when the queue is gone.
        std::optional<sal::MessageQueue::Level> level() const;
        bool isTaken(const sal::MessageQueue::Level& level) const;
    };
    /// Nothing unless it was written to the input queue of its driver.
    const std::optional<Place>& place() const { return m_place; }

    /// The one that is told of what this thread does; null for none. A plain look at a variable, since every
    /// FID and every message that the host sends asks for it.
    static FidWatch* ofThisThread() { return t_pInnermost; }

    void fidBegins(const std::string& driverID, const std::string& function);
    void fidEnded(bool ok, const char* exception);
    void sent(const std::string& queue, std::uint32_t number, const unsigned char* data, int length, bool ok);
    /// A line of the log: the driver kit says there that a driver does not know the function, or why it has
    /// not done the FID.
    void logged(const std::string& output, const std::string& text);

private:
    enum class EWay { None, Called, Written, NotWritten };

    // A part of the program itself, and nothing to initialise: so a look needs no call.
    [[gnu::tls_model("initial-exec")]] static constinit thread_local FidWatch* t_pInnermost;

    void describeCall(FidOutcome& outcome) const;
    void describeQueue(FidOutcome& outcome) const;
    void describeNobody(FidOutcome& outcome) const;

    const DriverTable& m_drivers;
    const std::string& m_fid;
    const FIDParameterList& m_parameters;
    const std::string m_driverID;
    const std::string m_function;
    const std::string m_inputQueue;
    const std::chrono::steady_clock::time_point m_began = std::chrono::steady_clock::now();
    FidWatch* const m_pOuter;

    EWay m_way = EWay::None;
    unsigned int m_depth = 0;  ///< calls of drivers that this thread is inside of
    bool m_isInside = false;   ///< the outermost of them is the FID's
    bool m_isOk = false;
    std::string m_exception;
    std::string m_unknown;     ///< what the driver has said of the function
    std::string m_whyRefused;  ///< what it has said of the FID
    std::optional<Place> m_place;
};
