#include "DriverSystem.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "FIDParameterList.h"
#include "InterfaceIds.h"
#include "sal/Module.h"

namespace {

using Calls = std::vector<std::string>;

/// Notes each call with the one in whose name it comes.
class Host : public ISystem, public IFunctionID {
public:
    IInterface* queryInterface(unsigned int id) override {
        return id == IID_IFunctionID ? static_cast<IFunctionID*>(this) : nullptr;
    }
    void executeCommand(const std::string& command, const std::string& arguments) override {
        note(command + "(" + arguments + ")");
    }
    bool sendFID(const std::string& fid, const FIDParameterList&) const override {
        note("send " + fid);
        return fid == "A.YES";
    }
    bool subscribe(const std::string& fid) const override {
        note("subscribe " + fid);
        return true;
    }
    bool showState() const override {
        note("show");
        return true;
    }
    void note(const std::string& what) const { calls.push_back(sal::Module::caller() + ": " + what); }

    mutable Calls calls;
};

class DriverSystem : public testing::Test {
protected:
    IFunctionID& sender() { return dynamic_cast<IFunctionID&>(*sut.queryInterface(IID_IFunctionID)); }

    Host host;
    sal::DriverSystem& sut = sal::DriverSystem::make(host);
};

TEST_F(DriverSystem, PassesOnInTheNameOfItsDriver) {
    sut.setDriverID("AXIS1");
    sut.executeCommand("quit", "now");
    EXPECT_TRUE(sender().sendFID("A.YES", {}));
    EXPECT_FALSE(sender().sendFID("A.NO", {}));
    EXPECT_TRUE(sender().subscribe("A.X"));
    EXPECT_TRUE(sender().showState());
    EXPECT_EQ(host.calls, (Calls{"AXIS1: quit(now)", "AXIS1: send A.YES", "AXIS1: send A.NO",
                                 "AXIS1: subscribe A.X", "AXIS1: show"}));
    EXPECT_EQ(sal::Module::caller(), "");
}

TEST_F(DriverSystem, HasNoNameBeforeItsDriverHas) {
    sut.executeCommand("quit", "");
    EXPECT_EQ(host.calls, Calls{": quit()"});
}

TEST_F(DriverSystem, InnermostDriverIsTheCaller) {
    auto& other = sal::DriverSystem::make(host);
    other.setDriverID("B");
    class Forwards : public Host {
    public:
        explicit Forwards(sal::DriverSystem& next) : m_next(next) {}
        void executeCommand(const std::string& command, const std::string& arguments) override {
            m_next.executeCommand(command, arguments);
            note("after");
        }

    private:
        sal::DriverSystem& m_next;
    } forwards(other);
    auto& outer = sal::DriverSystem::make(forwards);
    outer.setDriverID("A");
    outer.executeCommand("x", "");
    EXPECT_EQ(host.calls, Calls{"B: x()"});
    EXPECT_EQ(forwards.calls, Calls{"A: after"});
}

TEST_F(DriverSystem, OtherThreadsHaveNoCaller) {
    class Starts : public Host {
    public:
        void executeCommand(const std::string&, const std::string&) override {
            std::thread([this] { note("other"); }).join();
        }
    } starts;
    auto& started = sal::DriverSystem::make(starts);
    started.setDriverID("A");
    started.executeCommand("x", "");
    EXPECT_EQ(starts.calls, Calls{": other"});
}

TEST_F(DriverSystem, HasTheSameInterfacesAsTheHost) {
    EXPECT_EQ(sut.queryInterface(1), nullptr);
    EXPECT_EQ(sender().queryInterface(IID_IFunctionID), static_cast<IInterface*>(&sender()));
    EXPECT_EQ(sender().queryInterface(1), nullptr);
}

}  // namespace
