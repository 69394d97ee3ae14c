#include "BrokerConnection.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <string>

#include "HangGuard.h"
#include "TemporaryDirectory.h"
#include "UniqueFd.h"

namespace {

const LinkMessage s_will{.topic = "mf/1/SITE1/up", .payload = "{}", .isRetained = true};

/// Steps until there is a fault or the condition holds.
template <class Condition>
void serve(BrokerConnection& sut, Condition condition) {
    EXPECT_TRUE(eventually([&] {
        pollfd wait{sut.fd(), POLLIN, 0};
        if (sut.wantsWrite())
            wait.events |= POLLOUT;
        ::poll(&wait, 1, 10);
        if (sut.fault().empty())
            sut.step((wait.revents & (POLLIN | POLLHUP)) != 0, (wait.revents & POLLOUT) != 0);
        return !sut.fault().empty() || condition();
    }));
}

class BrokerConnectionTest : public testing::Test {
protected:
    BrokerConnectionTest() {
        m_listener = base::UniqueFd(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        EXPECT_EQ(::bind(m_listener.get(), reinterpret_cast<sockaddr*>(&address), length), 0);
        EXPECT_EQ(::listen(m_listener.get(), 1), 0);
        EXPECT_EQ(::getsockname(m_listener.get(), reinterpret_cast<sockaddr*>(&address), &length), 0);
        m_broker.host = "127.0.0.1";
        m_broker.port = ::ntohs(address.sin_port);
    }
    /// The connection's other end, once it has come.
    base::UniqueFd accept(BrokerConnection& sut, int flags = 0) const {
        base::UniqueFd peer;
        serve(sut, [&] {
            peer = base::UniqueFd(::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC | flags));
            return static_cast<bool>(peer);
        });
        return peer;
    }
    BrokerConnection::Handlers handlers() {
        return {[this] { m_isConnected = true; }, [](const LinkMessage&) {}};
    }

    base::UniqueFd m_listener;
    LinkSettings::Broker m_broker;
    bool m_isConnected = false;
};

TEST_F(BrokerConnectionTest, NothingIsSentBeforeTheBrokerHasTakenIt) {
    BrokerConnection sut("SITE1", m_broker, s_will, handlers());
    sut.open();
    EXPECT_EQ(sut.fault(), "");
    EXPECT_FALSE(sut.publish(s_will));
    EXPECT_FALSE(sut.subscribe("mf/1/SITE1/up"));
    EXPECT_EQ(sut.pending(), 0U);
}

TEST_F(BrokerConnectionTest, BeginsWithVersionFiveCleanStartAndItsWill) {
    m_broker.password = "hush";
    BrokerConnection sut("SITE1", m_broker, s_will, handlers());
    sut.open();
    const base::UniqueFd peer = accept(sut, SOCK_NONBLOCK);
    std::string bytes;
    serve(sut, [&] {
        char buffer[512];
        const auto length = ::recv(peer.get(), buffer, sizeof buffer, 0);
        if (length > 0)
            bytes.append(buffer, static_cast<std::size_t>(length));
        return bytes.size() >= 14 && bytes.find("hush") != std::string::npos;
    });
    // CONNECT, "MQTT", 5, then the flags: user name, password, retained will of QoS 1, Clean Start.
    ASSERT_GE(bytes.size(), 12U);
    EXPECT_EQ(bytes[0], '\x10');
    EXPECT_EQ(bytes.substr(2, 7), std::string("\0\4MQTT\5", 7));
    EXPECT_EQ(static_cast<unsigned char>(bytes[9]), 0xee);
    EXPECT_EQ(bytes.substr(10, 2), std::string("\0\12", 2));
    EXPECT_NE(bytes.find("mf-SITE1"), std::string::npos);
    EXPECT_NE(bytes.find("mf/1/SITE1/up"), std::string::npos);
    EXPECT_FALSE(m_isConnected);
}

TEST_F(BrokerConnectionTest, BrokerThatRefusesIsToldWithItsReason) {
    BrokerConnection sut("SITE1", m_broker, s_will, handlers());
    sut.open();
    const base::UniqueFd peer = accept(sut);
    // CONNACK: not authorised.
    EXPECT_EQ(::send(peer.get(), "\x20\x03\x00\x87\x00", 5, 0), 5);
    serve(sut, [] { return false; });
    EXPECT_EQ(sut.fault(), "the broker refuses the connection: Not authorized");
    EXPECT_FALSE(m_isConnected);
}

TEST_F(BrokerConnectionTest, AnotherHostOfTheSameNameIsToldAsSuch) {
    BrokerConnection sut("SITE1", m_broker, s_will, handlers());
    sut.open();
    const base::UniqueFd peer = accept(sut);
    // CONNACK: fine.
    EXPECT_EQ(::send(peer.get(), "\x20\x03\x00\x00\x00", 5, 0), 5);
    serve(sut, [this] { return m_isConnected; });
    EXPECT_TRUE(m_isConnected);
    EXPECT_EQ(sut.fault(), "");
    EXPECT_TRUE(sut.publish(s_will));
    EXPECT_EQ(sut.pending(), 1U);
    // DISCONNECT: the session is taken over.
    EXPECT_EQ(::send(peer.get(), "\xe0\x02\x8e\x00", 4, 0), 4);
    serve(sut, [] { return false; });
    EXPECT_EQ(sut.fault(), "another host has connected under this site's name");
    EXPECT_FALSE(sut.publish(s_will));
}

TEST_F(BrokerConnectionTest, WhatIsNoBrokerIsAFaultAndNoHang) {
    BrokerConnection sut("SITE1", m_broker, s_will, handlers());
    sut.open();
    const base::UniqueFd peer = accept(sut);
    const std::string answer = "HTTP/1.1 400 Bad Request\r\n\r\n" + std::string(500, 'x');
    EXPECT_EQ(::send(peer.get(), answer.data(), answer.size(), 0), static_cast<ssize_t>(answer.size()));
    serve(sut, [] { return false; });
    EXPECT_NE(sut.fault(), "");
}

TEST_F(BrokerConnectionTest, CertificatesThatAreNoneAreTold) {
    const TemporaryDirectory directory;
    directory.write("ca.pem", "no certificate");
    m_broker.authorities = directory.path("ca.pem");
    BrokerConnection sut("SITE1", m_broker, s_will, handlers());
    sut.open();
    if (sut.fault().empty())
        serve(sut, [] { return false; });
    EXPECT_NE(sut.fault(), "");
}

}  // namespace
