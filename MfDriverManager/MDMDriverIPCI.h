#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "IFunctionID.h"
#include "IMFDConfiguration.h"
#include "MDMExport.h"
#include "sal/MessageQueue.h"
#include "sal/Thread.h"

namespace protocol {
class MessageWriter;
}
class IPanelState;

/// Stands in the host for a driver that runs in a process of its own. Each call becomes one message on the
/// driver's input queue; the receiving thread reads the output queue and calls the three interfaces that
/// were handed in.
/// Made and owned by MDMModuleLoader: constructed, interfaces set, init, setConfiguration, ..., deinitialize,
/// deleted. FIDs and subscriptions may come on any thread, everything else on the command thread.
class MDM_API MDMDriverIPCI : public IFunctionID, public IMFDConfiguration, public sal::Thread {
public:
    /// One pending call of the panel state.
    struct QueueCmd {
        enum EKind { Unset = 0, SetString = 1, SetInt = 2, SetFloat = 3, SetBool = 4, Trigger = 5 };

        std::string name;
        int cmdType = Unset;
        std::string strValue;
        union {
            float asFloat;
            int asInt;
            bool asBool;
        } numValue{};
    };

    MDMDriverIPCI(const std::string& moduleFileName, const std::string& driverID);
    /// Ends the receiving thread if it still runs, after the call that it is inside has returned; what it
    /// holds back and what stands in the queue then is dropped. Ends no driver process.
    ~MDMDriverIPCI() override;

    /// Answers IID_IFunctionID and IID_IMFDConfiguration.
    IInterface* queryInterface(unsigned int id) override;

    /// Makes both queues, starts the receiving thread and, unless g_debugStartMFDProcess says otherwise, the
    /// driver process. Asserts the three interfaces and the driver ID. False, said on standard output, when a
    /// queue, the thread or the process could not be had; what was made by then stays.
    bool init();

    /// All of these return what the input queue's send() returned: they wait while the queue is full, and
    /// return false when the driver process is gone.
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override;
    bool subscribe(const std::string& fid) const override;
    bool showState() const override;
    /// Waits a second first, so that the driver process has come up. False also when the texts together are
    /// longer than one message.
    bool setConfiguration(int workplaceId, const std::string& driverID, const std::string& workingDirectory,
                          const std::string& ipAddress, const std::string& networkAdapter,
                          const std::string& virtualPanelAddress, const std::string& nvramDirectory) override;
    void setPanelStateInterface(IPanelState* pPanelState) override;
    void setDistributorFIDInterface(IDistributorFID* pDistributorFID) override;
    void setSystemInterface(ISystem* pSystem) override;
    bool initializationCompleted() override;
    /// Also ends the receiving thread.
    bool deinitialize() override;
    bool createFIDList() override;

    /// Body of the receiving thread.
    void run() override;

    /// Returns once both queues of the driver ID can be made again, however long that takes.
    static void waitForQueues(const std::string& driverID);

    /// The look-ahead queue; receiving thread only.
    void lookAhead(const QueueCmd& command);
    void flushLAQueue();

private:
    struct ReceiveBuffer;

    using Position = std::list<QueueCmd>::iterator;

    /// Where each pending call stands by kind and name, in one open table: no memory is asked for while as
    /// many are pending as before, and emptying it costs nothing.
    class Index {
    public:
        /// Null when no such call is pending.
        MDM_LOCAL const Position* find(const QueueCmd& command);
        /// The call that find() looked for last and did not find.
        MDM_LOCAL void add(Position position);
        MDM_LOCAL void clear();

    private:
        struct Slot {
            std::size_t hash = 0;
            std::uint64_t round = 0;  ///< the place is taken when this is the table's
            Position position;
        };
        MDM_LOCAL void grow();

        std::vector<Slot> m_slots;
        std::size_t m_used = 0;
        std::uint64_t m_round = 1;
        std::size_t m_hash = 0;   ///< what find() looked for last
        std::size_t m_place = 0;  ///< where it belongs
    };

    /// The receiving thread takes messages until none comes within the time-out, which is 0 after the first
    /// one, and delivers all that was held back.
    void drainOutQueue(ReceiveBuffer& buffer, int timeout);
    void handleMessage(ReceiveBuffer& buffer);
    bool send(const protocol::MessageWriter& message) const;

    std::list<QueueCmd> m_laQueue;  ///< oldest first
    std::string m_moduleFileName;
    std::string m_driverID;
    IPanelState* m_pIPanelState = nullptr;
    IDistributorFID* m_pIDistributorFID = nullptr;
    ISystem* m_pISystem = nullptr;
    mutable sal::MessageQueue m_inQueue;  ///< the driver's input: sent to only
    sal::MessageQueue m_outQueue;         ///< the driver's output: received from only
    std::atomic<bool> m_running{false};

    std::atomic<bool> m_dropping{false};  ///< the object is being destroyed: nothing is delivered any more

    Index m_laIndex;                ///< into m_laQueue, events apart
    std::list<QueueCmd> m_laSpare;  ///< delivered entries, used again for the next ones
};
