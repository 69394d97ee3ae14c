#include "HostReturn.h"

#include "RemoteFixture.h"

namespace {

class HostReturnTest : public RemoteFixture {
protected:
    Screen m_screen{m_out, m_err};
};

}  // namespace

TEST_F(HostReturnTest, FirstHostIsNoOther) {
    ApiClient client(m_host.path());
    HostReturn sut(client, m_screen);
    m_host.answer("GET /x", "{}");
    EXPECT_EQ(200u, sut.ask("/x").status);
    EXPECT_FALSE(sut.isAnother());
    EXPECT_EQ("", err());
}

TEST_F(HostReturnTest, HostThatWasNeverThereIsNotWaitedFor) {
    ApiClient client(m_directory.path("none"));
    HostReturn sut(client, m_screen);
    EXPECT_EQ(EExit::NoHost, errorOf([&] { sut.ask("/x"); }).first);
}

TEST_F(HostReturnTest, BrokenConnectionToTheSameHostIsNoOther) {
    ApiClient client(m_host.path());
    HostReturn sut(client, m_screen);
    m_host.answer("GET /x", "{}");
    sut.ask("/x");
    m_host.breakOff(1);
    EXPECT_EQ(200u, sut.ask("/x").status);
    EXPECT_FALSE(sut.isAnother());
    EXPECT_EQ("", err());
}

TEST_F(HostReturnTest, HostThatCameInItsPlaceIsAnotherOnce) {
    const std::string path = m_directory.path("s");
    auto pHost = std::make_unique<CannedHost>(path, "first");
    pHost->answer("GET /x", "{}");
    ApiClient client(path);
    HostReturn sut(client, m_screen);
    sut.ask("/x");
    pHost.reset();
    pHost = std::make_unique<CannedHost>(path, "second");
    pHost->answer("GET /x", "{}");
    sut.ask("/x");
    EXPECT_TRUE(sut.isAnother());
    EXPECT_EQ("mfctl: the host at " + path + " was started anew\n", err());
    sut.ask("/x");
    EXPECT_FALSE(sut.isAnother());
}
