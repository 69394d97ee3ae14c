#include "MDMConfigurationIPCI.h"

#include <gtest/gtest.h>

#include "IMDMConfiguration.h"
#include "StandardOutput.h"

TEST(MDMConfigurationIPCI, AnswersStatus) {
    MDMConfigurationIPCI sut;
    EXPECT_EQ(dynamic_cast<IMDMStatus*>(sut.queryInterface(1105)), static_cast<IMDMStatus*>(&sut));
}

TEST(MDMConfigurationIPCI, AnswersNoOtherIdentifier) {
    MDMConfigurationIPCI sut;
    for (unsigned int id : {0u, 1012u, 1100u, 1101u, 1102u, 1103u, 1104u, 1106u, 1107u, 1109u, 1201u})
        EXPECT_EQ(sut.queryInterface(id), nullptr) << id;
}

TEST(MDMConfigurationIPCI, StatusAsksTheConfigurationForNothing) {
    class Configuration : public IMDMConfiguration {
    public:
        IInterface* queryInterface(unsigned int) override { return used(); }
        void searchMfDriver(const std::string&) override { used(); }
        bool startMfDriver(int, const std::string&, const std::string&, const std::string&,
                           const std::string&, const std::string&, const std::string&,
                           EInterfaceTypes) override {
            return used();
        }
        bool startMfDrivers(const std::string&) override { return used(); }
        bool reloadMfDriver(const std::string&) override { return used(); }
        std::string getPDLFilename(std::string&) const override { return std::string(used() ? "x" : ""); }

    private:
        static IInterface* used() {
            ADD_FAILURE() << "the configuration was used";
            return nullptr;
        }
    };
    Configuration configuration;
    MDMConfigurationIPCI sut;
    sut.setMDMConfiguration(&configuration);
    sut.statusMfDriver();
    sut.queryInterface(1105);
}

TEST(MDMConfigurationIPCI, StatusDoesNothing) {
    const MDMConfigurationIPCI sut;
    EXPECT_EQ(fakehost::printedBy([&] { sut.statusMfDriver(); }), "");
}
