#pragma once

#include <mutex>
#include <string>

#include "IPanelState.h"

namespace mfd {

class Driver;

/// What the states of all types share: reports to the panel while the driver runs, and again what was set
/// before when the driver begins. Base of State; a member of the driver. Any thread.
class StateSlot {
public:
    StateSlot(Driver& driver, std::string id);
    virtual ~StateSlot();
    StateSlot(const StateSlot&) = delete;
    StateSlot& operator=(const StateSlot&) = delete;

    const std::string& id() const { return m_id; }

    /// Tells the panel again what it was told last, that there is no value included. Does nothing where
    /// there has been nothing to tell.
    void report();

protected:
    /// Reports what there is to the panel, unless the driver does not run: it is kept then and reported at
    /// the start. With the mutex held, so that reports come in the order of their values.
    void tellPanel();
    /// What tellPanel() says; with the mutex held.
    virtual void tell(IPanelState& panel) const = 0;
    /// Whether there is anything to say at the start; with the mutex held.
    virtual bool hasValue() const = 0;

    mutable std::mutex m_mutex;
    /// The panel has been told of the value; under the mutex.
    bool m_isReported = false;

private:
    friend class Driver;
    /// The driver begins.
    void begin();

    Driver& m_driver;
    const std::string m_id;
};

}  // namespace mfd
