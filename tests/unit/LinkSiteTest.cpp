#include "LinkSite.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "HangGuard.h"
#include "SilentLinkHost.h"

namespace {

using testing::HasSubstr;

/// A link whose broker is not there: nobody listens at port 1.
class LonelyLink : public ILink {
public:
    LonelyLink() {
        m_settings.site = "SITE1";
        m_settings.farSite = "SITE2";
        m_settings.broker.host = "127.0.0.1";
        m_settings.broker.port = 1;
    }
    const std::string& driverID() const override { return m_settings.farSite; }
    const LinkSettings& settings() const override { return m_settings; }
    IPanelState& panel() const override { return m_host; }
    void say(sal::LogOutput::ELevel, const std::string& text) const override {
        const std::lock_guard lock(m_mutex);
        m_lines.push_back(text);
    }
    std::vector<std::string> lines() const {
        const std::lock_guard lock(m_mutex);
        return m_lines;
    }

    LinkSettings m_settings;
    mutable SilentLinkHost m_host;

private:
    mutable std::mutex m_mutex;
    mutable std::vector<std::string> m_lines;
};

TEST(LinkSite, BrokerThatIsNotThereIsToldOnceHoweverOftenItIsTried) {
    LonelyLink link;
    {
        std::string error;
        const auto pSut = LinkSite::of(link.settings(), link.m_host, error);
        ASSERT_TRUE(pSut) << error;
        pSut->add(link);
        EXPECT_TRUE(eventually([&] { return !link.lines().empty(); }));
        EXPECT_FALSE(pSut->send(link, "AXIS1.MOVE", {}));
        pSut->remove(link);
    }
    const auto lines = link.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "no broker: 127.0.0.1 port 1: Connection refused");
    EXPECT_EQ(lines[1], "AXIS1.MOVE is not sent: no broker: 127.0.0.1 port 1: Connection refused");
    EXPECT_EQ(link.m_host.reported.back(), "LINK=no broker: 127.0.0.1 port 1: Connection refused");
}

/// One whose host has no memory for the first report.
class PoorLink : public LonelyLink {
public:
    void say(sal::LogOutput::ELevel level, const std::string& text) const override {
        if (!m_hasThrown.exchange(true))
            throw std::bad_alloc();
        LonelyLink::say(level, text);
    }

private:
    mutable std::atomic<bool> m_hasThrown = false;
};

TEST(LinkSite, ExceptionOnItsThreadIsAFaultOfTheConnection) {
    PoorLink link;
    std::string error;
    const auto pSut = LinkSite::of(link.settings(), link.m_host, error);
    ASSERT_TRUE(pSut) << error;
    pSut->add(link);
    EXPECT_TRUE(eventually([&] { return !link.lines().empty(); }));
    pSut->remove(link);
    EXPECT_THAT(link.lines().front(), testing::StartsWith("no broker: "));
}

TEST(LinkSite, SameSettingsAreTheSameSite) {
    LonelyLink link;
    std::string error;
    const auto pFirst = LinkSite::of(link.settings(), link.m_host, error);
    EXPECT_EQ(LinkSite::of(link.settings(), link.m_host, error), pFirst);
    LinkSettings other = link.settings();
    other.broker.password = "x";
    EXPECT_EQ(LinkSite::of(other, link.m_host, error), nullptr);
    EXPECT_THAT(error, HasSubstr("all links of SITE1 share one connection"));
    other.broker.port = 2;
    EXPECT_NE(LinkSite::of(other, link.m_host, error), pFirst);
}

}  // namespace
