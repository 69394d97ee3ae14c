#pragma once

#include <string>
#include <vector>

#include "FIDParameterList.h"
#include "ILinkHost.h"
#include "IPanelState.h"
#include "ISystem.h"

/// A host without values, to which nothing can be sent; writes down what a link reports.
class SilentLinkHost : public ILinkHost, public IPanelState, public ISystem {
public:
    IInterface* queryInterface(unsigned int id) override {
        if (id != ILinkHost::s_id)
            return nullptr;
        return static_cast<ILinkHost*>(this);
    }
    void executeCommand(const std::string&, const std::string&) override {}

    Changes changes(std::uint64_t) const override { return {1, true, {}, {}}; }
    std::vector<Event> events(std::uint64_t) const override { return {}; }
    void setFar(const std::string&, const Value&, const std::string&,
                std::chrono::steady_clock::time_point) override {}
    void makeStale(const std::string&, const std::vector<std::string>&, const std::string&) override {}
    void open(const std::string& driverID, int, int) override { opened.push_back(driverID); }
    void watch(const std::string&) override {}
    void close(const std::string& driverID) override { closed.push_back(driverID); }
    std::uint64_t send(const std::string&, const std::string&, const FIDParameterList&,
                       const std::string&) override {
        return 0;
    }
    std::vector<Outcome> outcomes(const std::string&) override { return {}; }
    std::string path() const override { return {}; }

    void setStateValue(const std::string& id, const std::string& value) override {
        reported.push_back(id + "=" + value);
    }
    void setStateValueFloat(const std::string&, float) override {}
    void setStateValueInt(const std::string&, int) override {}
    void setStateValueBool(const std::string&, bool) override {}
    void unsetStateValue(const std::string&) override {}
    void triggerEvent(const std::string&, const std::string&) override {}

    std::vector<std::string> opened;
    std::vector<std::string> closed;
    std::vector<std::string> reported;
};
