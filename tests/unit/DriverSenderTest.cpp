#include "DriverSender.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "FIDParameterList.h"
#include "HangGuard.h"
#include "Host.h"
#include "InterfaceIds.h"
#include "Sandbox.h"
#include "TestWorkplace.h"
#include "sal/HostQueueDirectory.h"
#include "sal/LogManager.h"

namespace {

class Target : public IFunctionID {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        sent = fid + " " + parameters.value("x");
        return true;
    }
    bool subscribe(const std::string& fid) const override {
        subscribed = fid;
        return true;
    }
    bool showState() const override { return true; }

    mutable std::string sent;
    mutable std::string subscribed;
};

/// Runs a host with the panel alone, in a process that has entered the sandbox, until its start is over.
/// Whether drivers could send through it then, and can no longer when its run is over.
bool sendsOnlyAsLongAsTheHostRuns() {
    const sal::LogManager log;
    const sal::HostQueueDirectory queueDirectory;
    StopSignals signals;
    Options options;
    options.driverDirectories = {TestWorkplace::build() / "lib/mfdrivers"};
    options.console = false;
    ControlSocket noSocket;
    ServiceManager noService{ServiceManager::Settings()};
    LineOwner lineOwner;
    WebPort noPort;
    options.records = false;
    RingPlace ringPlace(
        {.isFile = false, .size = RingPlace::s_smallest, .queueDirectory = {}, .recording = {}});
    Host host(options, signals, queueDirectory, noSocket, noPort, noService, lineOwner, ringPlace, {});
    const DriverSender& sut = host.m_system.sender();
    bool couldSend = false;
    std::thread stopper([&] {
        eventually([&] { return host.m_shell.m_isStartOver.load(); });
        couldSend = sut.m_pTarget != nullptr;
        ::kill(::getpid(), SIGTERM);
    });
    host.run();
    stopper.join();
    return couldSend && sut.m_pTarget == nullptr && !sut.sendFID("A.B", {});
}

}  // namespace

TEST(DriverSender, PassesTheWholeFidOn) {
    DriverSender sut;
    Target target;
    sut.setTarget(&target);
    FIDParameterList parameters;
    parameters.add("x", "5");
    EXPECT_TRUE(sut.sendFID("AXIS1.MOVE", parameters));
    EXPECT_EQ("AXIS1.MOVE 5", target.sent);
    EXPECT_TRUE(sut.subscribe("AXIS1.DONE"));
    EXPECT_EQ("AXIS1.DONE", target.subscribed);
}

TEST(DriverSender, SendsNothingWithoutAManager) {
    DriverSender sut;
    EXPECT_FALSE(sut.sendFID("AXIS1.MOVE", {}));
    EXPECT_FALSE(sut.subscribe("AXIS1.MOVE"));
}

TEST(DriverSender, AnswersFunctionIDOnly) {
    DriverSender sut;
    EXPECT_NE(nullptr, dynamic_cast<IFunctionID*>(sut.queryInterface(IID_IFunctionID)));
    EXPECT_EQ(nullptr, sut.queryInterface(IID_IPanelState));
}

TEST(DriverSender, HasNoTargetOnceTheManagerIsGone) {
    const pid_t child = ::fork();
    if (child == 0) {
        if (!enterSandbox("").empty())
            ::_exit(77);
        ::_exit(sendsOnlyAsLongAsTheHostRuns() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77)
        GTEST_SKIP() << "needs mount and network namespaces";
    EXPECT_EQ(0, status);
}
