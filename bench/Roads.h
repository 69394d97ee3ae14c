#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FIDParameterList.h"
#include "IFunctionID.h"
#include "IPanelState.h"
#include "MDMDriverIPCI.h"
#include "MDMFidDistributor.h"
#include "StateStore.h"

/// The ways through the module inside one process, each as a step that is measured by repeating it. The ends
/// are as empty as can be, so that the module alone is measured.
namespace roads {

/// A value that the compiler must take for used.
template <class T>
void use(const T& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

struct Driver : IFunctionID {
    IInterface* queryInterface(unsigned int) override { return nullptr; }
    bool sendFID(const std::string& fid, const FIDParameterList&) const override {
        use(fid.data());
        return true;
    }
    bool subscribe(const std::string&) const override { return true; }
    bool showState() const override { return true; }
};

struct EmptyTarget : IPanelState {
    IInterface* queryInterface(unsigned int) override { return nullptr; }
    void setStateValue(const std::string& id, const std::string&) override { use(id.data()); }
    void setStateValueFloat(const std::string& id, float) override { use(id.data()); }
    void setStateValueInt(const std::string& id, int) override { use(id.data()); }
    void setStateValueBool(const std::string& id, bool) override { use(id.data()); }
    void unsetStateValue(const std::string& id) override { use(id.data()); }
    void triggerEvent(const std::string& id, const std::string&) override { use(id.data()); }
};

inline std::string driverID(int number) {
    return "AXIS" + std::to_string(number);
}

/// A distributor with a hundred drivers, level 5 off, without a macro system.
struct BenchWorkplace {
    Driver driver;
    EmptyTarget target;
    MDMFidDistributor distributor;
    std::vector<IPanelState*> ports;

    BenchWorkplace() {
        distributor.setPanelStateInterface(&target);
        for (int i = 1; i <= 100; ++i)
            ports.push_back(distributor.addDriverPort(driverID(i), &driver));
    }
};

/// A FID from one driver to another, without parameters. Any thread may step.
struct FidToDriver {
    BenchWorkplace workplace;
    const std::string fid = "AXIS1.MOVE";
    const FIDParameterList parameters;

    void step() const { workplace.distributor.dispatchFID(fid, parameters); }
};

/// A state update of a driver to a panel target that does nothing with it.
struct UpdateToTarget {
    BenchWorkplace workplace;
    std::string id = "POSITION";
    int value = 0;

    void step() { workplace.ports.front()->setStateValueInt(id, ++value); }
};

/// The same with a key that no short string holds.
struct UpdateToTargetLongName : UpdateToTarget {
    UpdateToTargetLongName() { id = "POSITION.ACTUAL.MILLIMETRES"; }
};

/// State updates of a thousand names in turn to the host's store.
struct UpdateToStore {
    StateStore store;
    MDMFidDistributor distributor;
    IPanelState* pPort = nullptr;
    std::vector<std::string> ids;
    std::size_t next = 0;
    int value = 0;

    UpdateToStore() {
        distributor.setPanelStateInterface(&store);
        pPort = distributor.addDriverPort("AXIS1", nullptr);
        for (int i = 0; i < 1000; ++i)
            ids.push_back("VALUE" + std::to_string(i));
    }
    void step() {
        pPort->setStateValueInt(ids[next], ++value);
        next = next + 1 == ids.size() ? 0 : next + 1;
    }
};

/// An update of the newest pending name, which a look from the oldest on finds last, while so many are
/// pending.
struct LookAhead {
    EmptyTarget target;
    MDMDriverIPCI proxy{"", "AXIS1"};
    MDMDriverIPCI::QueueCmd command;

    explicit LookAhead(std::int64_t pending) {
        proxy.setPanelStateInterface(&target);
        command.cmdType = MDMDriverIPCI::QueueCmd::SetInt;
        for (std::int64_t i = 0; i < pending; ++i) {
            command.name = "VALUE" + std::to_string(i);
            proxy.lookAhead(command);
        }
    }
    void step() { proxy.lookAhead(command); }
};

/// A burst of updates that none replaces another, delivered at its end. One step is the whole burst.
struct LookAheadBurst {
    EmptyTarget target;
    MDMDriverIPCI proxy{"", "AXIS1"};
    std::vector<MDMDriverIPCI::QueueCmd> commands;

    explicit LookAheadBurst(std::int64_t names) : commands(static_cast<std::size_t>(names)) {
        proxy.setPanelStateInterface(&target);
        for (std::size_t i = 0; i < commands.size(); ++i) {
            commands[i].cmdType = MDMDriverIPCI::QueueCmd::SetInt;
            commands[i].name = "VALUE" + std::to_string(i);
        }
    }
    void step() {
        for (const auto& command : commands)
            proxy.lookAhead(command);
        proxy.flushLAQueue();
    }
};

}  // namespace roads
