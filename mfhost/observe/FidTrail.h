#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "FIDParameterList.h"
#include "Observation.h"
#include "StreamWriter.h"

/// Records each FID once, as its delivery begins, with who has sent it: what a thread is about to send is
/// remembered, and written when the same thread is seen to hand it to a driver, or comes back without that. A
/// second record says how it ended, where it was refused, threw, or took more than a millisecond. Owned by
/// Host; told by FidTap and by those who send, on the thread on which it happens.
///
/// FIDs of a sender that has had its share of the stream are only counted.
/// A thread that receives from a driver process looks at the clock once for each batch; while FIDs come
/// faster than one in 4 us, for every 16th message, and how long a single one took is not known then.
class FidTrail {
public:
    /// Why a FID has reached nobody. Without locks; the parameters are null where they are known to fit into
    /// a message.
    using WhyNobody =
        std::function<stream::EFidOutcome(const std::string& fid, const FIDParameterList* pParameters)>;
    /// Has the values recorded that the driver has set and that are held back.
    using RecordHeldBack = std::function<void(const std::string& driverID)>;

    FidTrail(Observation& observation, WhyNobody whyNobody, RecordHeldBack recordHeldBack)
        : m_observation(observation),
          m_whyNobody(std::move(whyNobody)),
          m_recordHeldBack(std::move(recordHeldBack)) {}
    FidTrail(const FidTrail&) = delete;
    FidTrail& operator=(const FidTrail&) = delete;

    /// What the calling thread sends as long as the object lives, and no driver does, is in this one's name.
    class Asking {
    public:
        /// The text outlives the object.
        Asking(stream::EOrigin origin, std::string_view who);
        ~Asking();
        Asking(const Asking&) = delete;
        Asking& operator=(const Asking&) = delete;

    private:
        friend class FidTrail;
        const Asking* const m_pOuter;
        const stream::EOrigin m_origin;
        const std::string_view m_who;
    };

    /// A FID that the calling thread is about to send, until it has come back from that.
    class Sending {
    public:
        /// In the name of the driver that is inside the host's ISystem, else of who asks. Without a trail
        /// nothing is recorded. FID and parameters outlive the object.
        Sending(FidTrail* pTrail, const std::string& fid, const FIDParameterList& parameters);
        ~Sending();
        Sending(const Sending&) = delete;
        Sending& operator=(const Sending&) = delete;

    private:
        friend class FidTrail;

        FidTrail* const m_pTrail;
        Sending* const m_pOuter;
        const std::string& m_fid;
        const FIDParameterList& m_parameters;
        std::string_view m_senderID;  ///< of a driver
        stream::EOrigin m_origin = stream::EOrigin::Host;
        bool m_isPending = true;
    };

    void fidBegins(const std::string& driverID, const std::string& function,
                   const FIDParameterList& parameters);
    void fidEnded(bool ok, const char* exception);
    void sent(const std::string& queue, const unsigned char* data, int length, bool ok);
    void received(const std::string& queue, const unsigned char* data, int length);
    void waits(const std::string& queue);
    /// A line of the log: the driver kit says there that a driver does not know a function.
    void logged(const std::string& output, const std::string& text);

    /// From where the calling thread is asked for what it does.
    static stream::EOrigin origin() { return t_pAsking ? t_pAsking->m_origin : stream::EOrigin::Host; }
    /// In whose name the calling thread acts; empty for nobody in particular.
    static std::string_view who() { return t_pAsking ? t_pAsking->m_who : std::string_view(); }
    /// The driver from whose process the calling thread receives; empty for none.
    static std::string_view driverOfThread();

private:
    struct Trail;
    struct Delivery;
    struct Taken;

    [[gnu::tls_model("initial-exec")]] static constinit thread_local Trail t_trail;
    [[gnu::tls_model("initial-exec")]] static constinit thread_local const Asking* t_pAsking;

    Observation::Clock::time_point clock(Trail& trail) const;
    void takeSending(Sending& sending, Taken& taken);
    void takeMessage(Trail& trail, Taken& taken);
    bool take(Trail& trail, std::string_view driverID, std::string_view function, Taken& taken);
    std::uint64_t write(Taken& taken, Observation::Clock::time_point when);
    void reachesNobody(Taken& taken, const std::string& fid, const FIDParameterList* pParameters);
    // Apart from what a FID that is only counted passes: that has nothing to save for them.
    [[gnu::noinline]] void recordBegin(Trail& trail, const std::string& driverID, const std::string& function,
                                       const FIDParameterList& parameters);
    [[gnu::noinline]] void recordEnd(bool ok, const char* exception);
    [[gnu::noinline]] void recordSent(Trail& trail, const std::string& queue, const unsigned char* data,
                                      int length, bool ok);
    [[gnu::noinline]] void takeReceived(Trail& trail, const std::string& queue, const unsigned char* data,
                                        int length);
    void beginReceiving(Trail& trail, const std::string& queue);
    void settle(Trail& trail);
    void endPending(Trail& trail);
    bool passesOver(const Trail& trail) const;
    void passOver(Trail& trail);
    [[gnu::noinline]] void tellRefused(Trail& trail);

    Observation& m_observation;
    const WhyNobody m_whyNobody;
    const RecordHeldBack m_recordHeldBack;
};
