#pragma once

#include <functional>
#include <memory>
#include <string>

#include "ApiBody.h"
#include "ApiCall.h"
#include "ApiContext.h"
#include "ApiReading.h"
#include "PendingAction.h"

/// One action that is asked for: who asks, what stands in the path after the resource's own words, the body,
/// and where the outcome goes.
struct ApiRequest {
    const ApiCaller& caller;
    const std::string& name;  ///< of the driver or macro; empty where the path has none
    const ApiBody& body;
    std::shared_ptr<PendingAction> pAction;
};

/// Does what is asked for: each operation takes one action from its request to its outcome. What concerns
/// drivers, values, macros and console lines is only posted to the command thread; FIDs go to their senders.
/// Owned by ApiHandler; outlives what it posts. API thread; returns at once. An ApiFault says why the action
/// is not even begun.
class ApiActions {
public:
    ApiActions(const ApiContext& context, const ApiReading& reading)
        : m_context(context), m_reading(reading) {}
    ApiActions(const ApiActions&) = delete;
    ApiActions& operator=(const ApiActions&) = delete;

    void sendFid(const ApiRequest& request) const;
    void setState(const ApiRequest& request) const;
    void unsetState(const ApiRequest& request) const;
    void triggerEvent(const ApiRequest& request) const;
    /// At once: it waits for no command.
    void acknowledge(const ApiRequest& request) const;
    void shelve(const ApiRequest& request) const;
    /// At once.
    void changeControls(const ApiRequest& request) const;
    void recordWire(const ApiRequest& request) const;
    void playMacro(const ApiRequest& request) const;
    void reload(const ApiRequest& request) const;
    void debug(const ApiRequest& request) const;
    void park(const ApiRequest& request) const;
    void unpark(const ApiRequest& request) const;
    void plan(const ApiRequest& request) const;
    void apply(const ApiRequest& request) const;
    void undo(const ApiRequest& request) const;
    void check(const ApiRequest& request) const;
    void console(const ApiRequest& request) const;
    void shutDown(const ApiRequest& request) const;
    void openPanel(const ApiRequest& request) const;
    void pair(const ApiRequest& request) const;
    void endSession(const ApiRequest& request) const;

    /// Where a command goes into the stream: what only reads is none, and a console line is recorded where it
    /// is executed.
    enum class ERecorded { Here, Elsewhere };
    /// Has the answer worked out on the command thread.
    void perform(const std::shared_ptr<PendingAction>& pAction, const ApiCaller& caller,
                 const std::string& what, std::function<ApiAnswer()> run,
                 ERecorded recorded = ERecorded::Here) const;

private:
    /// How answer, recording and log name what is done with alarms.
    struct AlarmChange {
        const char* member;
        const char* verb;
        std::string arguments = {};
        std::string said;
    };
    /// perform is false where there is no such alarm.
    void changeAlarms(const ApiRequest& request, const AlarmChange& change,
                      const std::function<bool(const std::string& key)>& perform) const;
    void giveCode(const ApiRequest& request, const ApiWebCode& code, ERole role) const;
    /// What is done at once goes into the stream as a command of the caller.
    void record(const ApiCaller& caller, const std::string& command) const;
    ApiAnswer answer(const ApiOutcome& outcome) const;
    ApiAnswer answer(const ApiOutcome& outcome, const std::string& driverID, const char* pDone) const;
    void needDriver(const std::string& driverID) const;

    const ApiContext& m_context;
    const ApiReading& m_reading;
};
