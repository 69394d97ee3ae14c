#include "StartFault.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "TemporaryDirectory.h"
#include "sal/NetworkAdapter.h"

namespace {

class StartFaultTest : public testing::Test {
protected:
    StartFaultTest() {
        m_directory.write(
            "a.xml",
            "<mfDriverModule><module_type name='axis.so' type='Axis' version='1.0'/><module_type "
            "name='gone.so' type='Gone' version='1.0'/></mfDriverModule>");
        m_directory.write("axis.so", "module");
        m_entry.driverType = "Axis";
        m_entry.version = "1.0";
        m_entry.interfaceWord = "queue";
        m_entry.interfaceType = EInterfaceTypes::Queue;
        m_entry.networkAdapter = "lo";
    }
    std::string fault() const { return startFault(m_entry, DescriptorCatalogue({m_directory.path()})); }

    TemporaryDirectory m_directory;
    WorkplaceFile::Entry m_entry;
};

}  // namespace

TEST_F(StartFaultTest, MissingAdapterIsNamed) {
    m_entry.networkAdapter = "eth77";
    EXPECT_EQ("no adapter eth77", fault());
}

TEST_F(StartFaultTest, MissingDescriptorIsNamed) {
    m_entry.version = "2.0";
    EXPECT_EQ("no descriptor of type \"Axis\" in version \"2.0\"", fault());
}

TEST_F(StartFaultTest, InterfaceThatLoadsNothingIsNamed) {
    m_entry.interfaceType = EInterfaceTypes::Socket;
    m_entry.interfaceWord = "socket";
    EXPECT_EQ("the interfaceType \"socket\" loads nothing", fault());
    m_entry.interfaceWord.clear();
    EXPECT_EQ("no interfaceType", fault());
}

// In a process of its own: second names are for good.
TEST_F(StartFaultTest, MissingModuleIsNamedAndNothingElseIsMadeUp) {
    const pid_t child = ::fork();
    if (child == 0) {
        sal::NetworkAdapter::setSecondName("eth0", "lo");
        const bool isNone = fault().empty();
        m_entry.driverType = "Gone";
        const std::string text = fault();
        ::_exit(isNone && text == "the module file " + m_directory.path("gone.so") +
                                      " cannot be loaded: No such file or directory"
                    ? 0
                    : 1);
    }
    int status = 0;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
}
