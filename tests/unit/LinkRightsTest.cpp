#include "LinkRights.h"

#include <gtest/gtest.h>

#include <string>

namespace {

LinkSettings link(const std::string& site, const std::string& farSite) {
    LinkSettings settings;
    settings.site = site;
    settings.farSite = farSite;
    settings.broker.host = "broker";
    settings.broker.port = 1883;
    return settings;
}

TEST(LinkRights, OwnTreeWhatIsImportedAndWhoMaySendFids) {
    LinkSettings first = link("SITE1", "SITE2");
    first.exported.areAll = true;
    first.imported.ids = {"AXIS1", "LAMP/2"};
    first.allowed.ids = {"LAMP1"};
    LinkSettings second = link("SITE1", "SITE3");
    second.imported.areAll = true;
    EXPECT_EQ(linkRights({first, second}),
              "# broker broker port 1883\n"
              "user SITE1\n"
              "topic read mf/1/SITE2/event/AXIS1/+\n"
              "topic read mf/1/SITE2/event/LAMP%2F2/+\n"
              "topic read mf/1/SITE2/reply/+\n"
              "topic read mf/1/SITE2/state/AXIS1/+\n"
              "topic read mf/1/SITE2/state/LAMP%2F2/+\n"
              "topic read mf/1/SITE2/tick\n"
              "topic read mf/1/SITE2/up\n"
              "topic read mf/1/SITE3/event/+/+\n"
              "topic read mf/1/SITE3/reply/+\n"
              "topic read mf/1/SITE3/state/+/+\n"
              "topic read mf/1/SITE3/tick\n"
              "topic read mf/1/SITE3/up\n"
              "topic readwrite mf/1/SITE1/#\n"
              "user SITE2\n"
              "topic write mf/1/SITE1/fid/LAMP1/+\n");
}

TEST(LinkRights, SitesOfEachBrokerStandTogether) {
    LinkSettings other = link("SITE1", "SITE2");
    other.broker.port = 8883;
    other.allowed.areAll = true;
    EXPECT_EQ(linkRights({other, link("SITE3", "SITE2")}),
              "# broker broker port 1883\n"
              "user SITE3\n"
              "topic read mf/1/SITE2/reply/+\n"
              "topic read mf/1/SITE2/tick\n"
              "topic read mf/1/SITE2/up\n"
              "topic readwrite mf/1/SITE3/#\n"
              "# broker broker port 8883\n"
              "user SITE1\n"
              "topic read mf/1/SITE2/reply/+\n"
              "topic read mf/1/SITE2/tick\n"
              "topic read mf/1/SITE2/up\n"
              "topic readwrite mf/1/SITE1/#\n"
              "user SITE2\n"
              "topic write mf/1/SITE1/fid/+/+\n");
}

}  // namespace
