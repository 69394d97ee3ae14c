#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CallGate.h"
#include "MfdDriverBase.h"
#include "mfd/Answer.h"
#include "mfd/Arguments.h"
#include "mfd/Event.h"
#include "mfd/Parameter.h"
#include "mfd/State.h"

namespace mfd {

class EventLoop;

/// A driver whose work is done on one thread of its own: handlers of FIDs, timers and watched descriptors
/// come one after another, and start() and stop() when none of them does, so that it needs no lock. It
/// declares its functions in its constructor, its states and events as members. After deinitialize() nothing
/// of it runs, and what it still reports or sends is kept back. The loader owns it.
class Driver : public MfdDriverBase {
public:
    /// For the host, on any thread: has the FID done on the driver's thread, or at once where the function
    /// answers. False, with one line that says what would be right, when there is no such function, a
    /// parameter is wrong, the driver does not run, 4096 pieces of work wait already, or the answer is that
    /// it was not done. True does not say that it is done, but of a function that answers.
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const final;
    /// For the loader: reports the states that have a value, calls start(), lets FIDs in. False, with a line,
    /// when there is no thread or start() says so or throws; nothing runs then.
    bool initializationCompleted() final;
    /// For the loader: lets no FID in, does for a second at most what is left, calls stop(), and keeps back
    /// what is reported from then on. Waits for a handler that does not return. True, but when stop() throws.
    bool deinitialize() final;

protected:
    using Handler = std::function<void(const Arguments& arguments)>;
    using AnsweringHandler = std::function<Answer(const Arguments& arguments)>;
    using Work = std::function<void()>;
    using Milliseconds = std::chrono::milliseconds;

    Driver();
    ~Driver() override;

    /// Declares a function, without the driver ID; in the constructor alone. A second one of a name is a
    /// std::logic_error. An exception that leaves the handler is one line of the log.
    void function(std::string name, std::vector<Parameter> parameters, Handler handler);
    void function(std::string name, Work handler);
    /// Declares a function likewise whose handler tells the sender whether it was done. It comes on the
    /// sender's thread, several at a time, beside what the driver's own thread does, and before FIDs of the
    /// same sender that wait there; so it returns soon, and what it shares with others needs a lock. States,
    /// events and all operations below may be used as they are. An answer that is not Answer::done() is one
    /// line of the log, as are an exception (Answer::failed) and what the kit itself refuses. The sender is
    /// told that line where the driver runs in its process; one of another process finds it in the log.
    void answer(std::string name, std::vector<Parameter> parameters, AnsweringHandler handler);

    /// The driver begins: configuration and interfaces are there, and no handler runs. On the loader's
    /// thread, once for each start. False when it cannot work; it says why in the log.
    virtual bool start() { return true; }
    /// The driver ends: no handler runs any more, but it may still report and send. On the loader's thread;
    /// not called where start() was not. Threads of the driver's own end here.
    virtual void stop() {}

    /// Has something done on the driver's thread. Any thread. False when the driver does not run, or 4096
    /// pieces of work wait already.
    bool post(Work work) const;
    /// Once after so long; again and again with that period. From start() on, any thread. The number for
    /// cancel(); 0 when the driver does not run.
    unsigned after(Milliseconds time, Work work) const;
    unsigned every(Milliseconds period, Work work) const;
    /// On the driver's thread the timer does not come any more. 0 and what has passed may be cancelled.
    void cancel(unsigned timer) const;
    /// Calls this while the descriptor can be read, has ended or has an error. From start() on; the
    /// descriptor stays open until unwatch(). Empty, or why it cannot be watched.
    std::string watch(int fd, Work work) const;
    void unwatch(int fd) const;
    /// The time of after() and every(). A test may have it stand still.
    std::chrono::steady_clock::time_point now() const;

    /// Sends a whole FID ("PANEL.ALARM") to another driver, in both modes alike. Any thread, from start() on;
    /// waits while the host's queue is full. True when the host has it: in its process the other driver has
    /// been called, or its queue has the FID; from a process of its own, the host's queue has it. That the
    /// other driver did something is not said. False, with a line, when it is no FID, is too long for a
    /// message (also where none is needed), the driver does not run, or the host does not take it.
    bool sendToDriver(const std::string& fid, const FIDParameterList& parameters = {}) const;

private:
    friend class StateSlot;
    friend class Event;

    struct Function {
        std::string name;
        std::vector<Parameter> parameters;
        Handler handler;
        AnsweringHandler answer;  ///< empty where there is a handler
    };
    struct Parts;

    void declare(Function function);
    const Function* find(const std::string& name) const;
    std::string names() const;
    bool handle(const Function& function, const FIDParameterList& parameters) const;
    bool tellAnswer(const Function& function, const Arguments& arguments) const;
    bool advance(const FIDParameterList& parameters) const;
    bool begin();
    /// Keeps back what is reported from now on.
    void keepBack();
    /// The panel, while the driver runs.
    bool toPanel(const std::function<void(IPanelState&)>& report) const;
    void add(StateSlot& state);

    std::vector<Function> m_functions;
    std::vector<StateSlot*> m_states;
    /// Open while FIDs are taken.
    mutable CallGate m_calls;
    /// Open from before start() until after stop().
    mutable CallGate m_reports;
    const std::unique_ptr<Parts> m_pParts;
};

}  // namespace mfd
