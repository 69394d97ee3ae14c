#include "MDMDriverIPCI.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <iterator>
#include <vector>

#include "FIDParameterList.h"
#include "IDistributorFID.h"
#include "IPanelState.h"
#include "ISystem.h"
#include "InterfaceIds.h"
#include "MessageReader.h"
#include "MessageWriter.h"
#include "MfDriverManager.h"
#include "QueueNames.h"
#include "sal/Assert.h"
#include "sal/Path.h"
#include "sal/Process.h"

// State changes are held back while the driver keeps talking, so that a burst of updates of one value reaches
// the panel once, with the newest value at the newest place. As soon as the driver falls silent, and before a
// FID or a system command is passed on, everything held back is delivered in order: nothing overtakes what
// the driver sent before it. Events are never merged, and neither are changes of different kinds.

namespace {

constexpr unsigned short g_inCapacity = 256;
constexpr unsigned short g_outCapacity = 16384;
constexpr int g_messageSize = protocol::maximumLength;
constexpr int g_queueMode = 0;
constexpr std::size_t g_pendingLimit = 299;
constexpr int g_idleTimeout = 1000;
constexpr unsigned int g_queueRetryPause = 100;

/// Is flushed at once, so that it reaches a reader through a pipe as well.
void printLine(const std::string& line) {
    std::puts(line.c_str());
    std::fflush(stdout);
}

void waitForQueue(const std::string& name, unsigned short capacity) {
    for (;;) {
        sal::MessageQueue queue;
        if (queue.create(name, capacity, g_messageSize, g_queueMode)) {
            queue.close();
            return;
        }
        sal::Thread::mssleep(g_queueRetryPause);
    }
}

}  // namespace

/// The message last received.
struct MDMDriverIPCI::ReceiveBuffer {
    unsigned char bytes[g_messageSize];
    std::size_t length = 0;
    QueueCmd command;  ///< the update in it; kept, so that its texts keep their memory
};

MDMDriverIPCI::MDMDriverIPCI(const std::string& moduleFileName, const std::string& driverID)
    : m_moduleFileName(moduleFileName), m_driverID(driverID) {}

MDMDriverIPCI::~MDMDriverIPCI() {
    m_dropping = true;
    m_running = false;
    shutdown(-1);
    m_driverID.clear();
    m_pIPanelState = nullptr;
    m_pIDistributorFID = nullptr;
    m_pISystem = nullptr;
}

IInterface* MDMDriverIPCI::queryInterface(unsigned int id) {
    switch (id) {
        case IID_IFunctionID:
            return static_cast<IFunctionID*>(this);
        case IID_IMFDConfiguration:
            return static_cast<IMFDConfiguration*>(this);
        default:
            return nullptr;
    }
}

bool MDMDriverIPCI::init() {
    SAL_ASSERT(m_pIPanelState);
    SAL_ASSERT(m_pIDistributorFID);
    SAL_ASSERT(m_pISystem);
    SAL_ASSERT(!m_driverID.empty());

    if (!m_inQueue.create(protocol::inputQueue(m_driverID), g_inCapacity, g_messageSize, g_queueMode) ||
        !m_outQueue.create(protocol::outputQueue(m_driverID), g_outCapacity, g_messageSize, g_queueMode)) {
        printLine("\nFailed to create IPC queues");
        return false;
    }

    m_running = true;
    if (!start(ePriorityNormal)) {
        m_running = false;
        printLine("\nFailed to create receiving thread.");
        return false;
    }

    if (!g_debugStartMFDProcess)
        return true;

    const std::string title = m_driverID + " MFD Console";
    sal::Path executable = sal::Path::getExeBasePath();
    executable.expand("mfddllwrap");
    const std::vector<std::string> arguments{m_moduleFileName, m_driverID};
    printLine("m_moduleFileName=" + m_moduleFileName);
    printLine("m_driverID=" + m_driverID);
    if (!sal::Process::createProcess(title, executable, arguments)) {
        printLine("\nFailed to create MFD process.");
        return false;
    }
    return true;
}

bool MDMDriverIPCI::sendFID(const std::string& fid, const FIDParameterList& parameters) const {
    return send(protocol::MessageWriter(protocol::sendFID).string(fid).parameters(parameters));
}

bool MDMDriverIPCI::subscribe(const std::string& fid) const {
    return send(protocol::MessageWriter(protocol::subscribe).string(fid));
}

bool MDMDriverIPCI::showState() const {
    return send(protocol::MessageWriter(protocol::showState));
}

bool MDMDriverIPCI::setConfiguration(int workplaceId, const std::string& driverID,
                                     const std::string& workingDirectory, const std::string& ipAddress,
                                     const std::string& networkAdapter,
                                     const std::string& virtualPanelAddress,
                                     const std::string& nvramDirectory) {
    sleep(1);
    return send(protocol::MessageWriter(protocol::setConfiguration)
                    .int32(workplaceId)
                    .string(driverID)
                    .string(workingDirectory)
                    .string(ipAddress)
                    .string(networkAdapter)
                    .string(virtualPanelAddress)
                    .string(nvramDirectory));
}

void MDMDriverIPCI::setPanelStateInterface(IPanelState* pPanelState) {
    m_pIPanelState = pPanelState;
}

void MDMDriverIPCI::setDistributorFIDInterface(IDistributorFID* pDistributorFID) {
    m_pIDistributorFID = pDistributorFID;
}

void MDMDriverIPCI::setSystemInterface(ISystem* pSystem) {
    m_pISystem = pSystem;
}

bool MDMDriverIPCI::initializationCompleted() {
    return send(protocol::MessageWriter(protocol::initializationCompleted));
}

bool MDMDriverIPCI::deinitialize() {
    const bool sent = send(protocol::MessageWriter(protocol::deinitialize));
    m_running = false;
    shutdown(-1);
    return sent;
}

bool MDMDriverIPCI::createFIDList() {
    return send(protocol::MessageWriter(protocol::createFIDList));
}

void MDMDriverIPCI::run() {
    if (!m_pIPanelState || !m_pISystem || !m_running)
        return;

    ReceiveBuffer buffer;
    while (m_running)
        drainOutQueue(buffer, g_idleTimeout);
    // What the driver sent while the last updates were delivered stood in the queue before the shutdown, too.
    drainOutQueue(buffer, 0);
}

void MDMDriverIPCI::waitForQueues(const std::string& driverID) {
    waitForQueue(protocol::inputQueue(driverID), g_inCapacity);
    waitForQueue(protocol::outputQueue(driverID), g_outCapacity);
}

const MDMDriverIPCI::Position* MDMDriverIPCI::Index::find(const QueueCmd& command) {
    if (m_slots.size() < 2 * (m_used + 1))
        grow();
    m_hash = std::hash<std::string>()(command.name) + static_cast<std::size_t>(command.cmdType);
    const std::size_t mask = m_slots.size() - 1;
    for (m_place = m_hash & mask;; m_place = (m_place + 1) & mask) {
        const Slot& slot = m_slots[m_place];
        if (slot.round != m_round)
            return nullptr;
        if (slot.hash == m_hash && slot.position->cmdType == command.cmdType &&
            slot.position->name == command.name)
            return &slot.position;
    }
}

void MDMDriverIPCI::Index::add(Position position) {
    m_slots[m_place] = {m_hash, m_round, position};
    ++m_used;
}

void MDMDriverIPCI::Index::clear() {
    m_used = 0;
    ++m_round;
}

void MDMDriverIPCI::Index::grow() {
    std::vector<Slot> slots(std::max<std::size_t>(16, 2 * m_slots.size()));
    slots.swap(m_slots);
    const std::size_t mask = m_slots.size() - 1;
    for (const Slot& slot : slots) {
        if (slot.round != m_round)
            continue;
        std::size_t place = slot.hash & mask;
        while (m_slots[place].round == m_round)
            place = (place + 1) & mask;
        m_slots[place] = slot;
    }
}

// However many names are pending, one look finds the entry that an update replaces.
void MDMDriverIPCI::lookAhead(const QueueCmd& command) {
    const bool isEvent = command.cmdType == QueueCmd::Trigger;
    if (!isEvent) {
        if (const Position* same = m_laIndex.find(command)) {
            QueueCmd& pending = **same;
            pending.strValue = command.strValue;
            pending.numValue = command.numValue;
            m_laQueue.splice(m_laQueue.end(), m_laQueue, *same);
            return;
        }
    }
    if (m_laSpare.empty()) {
        m_laQueue.push_back(command);
    } else {
        m_laSpare.front() = command;
        m_laQueue.splice(m_laQueue.end(), m_laSpare, m_laSpare.begin());
    }
    if (!isEvent)
        m_laIndex.add(std::prev(m_laQueue.end()));
}

void MDMDriverIPCI::flushLAQueue() {
    for (const QueueCmd& command : m_laQueue) {
        if (m_dropping)
            break;
        switch (command.cmdType) {
            case QueueCmd::Unset:
                m_pIPanelState->unsetStateValue(command.name);
                break;
            case QueueCmd::SetString:
                m_pIPanelState->setStateValue(command.name, command.strValue);
                break;
            case QueueCmd::SetInt:
                m_pIPanelState->setStateValueInt(command.name, command.numValue.asInt);
                break;
            case QueueCmd::SetFloat:
                m_pIPanelState->setStateValueFloat(command.name, command.numValue.asFloat);
                break;
            case QueueCmd::SetBool:
                m_pIPanelState->setStateValueBool(command.name, command.numValue.asBool);
                break;
            case QueueCmd::Trigger:
                m_pIPanelState->triggerEvent(command.name, command.strValue);
                break;
            default:
                break;
        }
    }
    m_laIndex.clear();
    m_laSpare.splice(m_laSpare.end(), m_laQueue);
    if (m_laSpare.size() > g_pendingLimit + 1)
        m_laSpare.resize(g_pendingLimit + 1);
}

void MDMDriverIPCI::drainOutQueue(ReceiveBuffer& buffer, int timeout) {
    for (;;) {
        const int length = m_outQueue.receive(buffer.bytes, g_messageSize, timeout);
        if (length < 0)
            break;
        buffer.length = static_cast<std::size_t>(length);

        if (m_laQueue.size() > g_pendingLimit)
            flushLAQueue();
        handleMessage(buffer);
        timeout = 0;
    }
    flushLAQueue();
}

void MDMDriverIPCI::handleMessage(ReceiveBuffer& buffer) {
    protocol::MessageReader message(buffer.bytes, buffer.length);
    QueueCmd& command = buffer.command;
    command.strValue.clear();
    command.numValue = {};
    if (message.hasCode(protocol::setStateValue)) {
        command.cmdType = QueueCmd::SetString;
        message.string(command.name);
        message.string(command.strValue);
        lookAhead(command);
    } else if (message.hasCode(protocol::setStateValueFloat)) {
        command.cmdType = QueueCmd::SetFloat;
        message.string(command.name);
        command.numValue.asFloat = message.float32();
        lookAhead(command);
    } else if (message.hasCode(protocol::setStateValueInt)) {
        command.cmdType = QueueCmd::SetInt;
        message.string(command.name);
        command.numValue.asInt = message.int32();
        lookAhead(command);
    } else if (message.hasCode(protocol::setStateValueBool)) {
        command.cmdType = QueueCmd::SetBool;
        message.string(command.name);
        command.numValue.asBool = message.bool8();
        lookAhead(command);
    } else if (message.hasCode(protocol::unsetStateValue)) {
        command.cmdType = QueueCmd::Unset;
        message.string(command.name);
        lookAhead(command);
    } else if (message.hasCode(protocol::triggerEvent)) {
        command.cmdType = QueueCmd::Trigger;
        message.string(command.name);
        message.string(command.strValue);
        lookAhead(command);
    } else if (message.hasCode(protocol::executeCommand)) {
        flushLAQueue();
        const std::string systemCommand = message.string();
        const std::string arguments = message.string();
        if (!m_dropping)
            m_pISystem->executeCommand(systemCommand, arguments);
    } else if (message.hasCode(protocol::dispatchFID)) {
        flushLAQueue();
        const std::string fid = message.string();
        FIDParameterList parameters;
        for (unsigned int pairs = message.count8(); pairs > 0; --pairs) {
            const std::string key = message.string();
            const std::string value = message.string();
            parameters.add(key, value);
        }
        if (m_pIDistributorFID && !m_dropping)
            m_pIDistributorFID->dispatchFID(fid, parameters);
    }
}

bool MDMDriverIPCI::send(const protocol::MessageWriter& message) const {
    return message.fits() && m_inQueue.send(message.data(), static_cast<int>(message.length()), -1);
}
