#include <sys/stat.h>

#include <filesystem>

#include "SystemTest.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

// What the host keeps from the XML library and from the drivers: which file, which line, what would be right.
class HostFiles : public SystemTest {
protected:
    void prepare() override { giveAdapter(); }

    std::string file() { return workplace().configuration().string(); }

    void configureText(const std::string& text) { writeFile(workplace().configuration(), text); }

    /// One healthy driver, and a descriptor beside its own.
    void configureBeside(const std::string& descriptor, const std::string& text) {
        workplace().addModule("Recorder");
        workplace().configure(TestWorkplace::entry("GOOD", "Recorder", "direct"));
        writeFile(workplace().drivers() / descriptor, text);
    }

    /// The host does not start with this configuration, says why in one line, and loads nothing.
    void expectRefusal(const std::string& reason) {
        HostProcess& host = start();
        EXPECT_EQ(host.waitForEnd(), 1);
        EXPECT_TRUE(host.waitForLog(reason + "; the workplace is not started\n")) << host.log();
        EXPECT_EQ(host.output(), "");
    }

    void expectLeftOut(const std::string& descriptor, const std::string& reason) {
        HostProcess& host = start();
        EXPECT_EQ(end(), 0);
        EXPECT_THAT(host.log(), HasSubstr((workplace().drivers() / descriptor).string() + reason +
                                          "; the descriptor is left out\n"));
        EXPECT_THAT(host.output(), HasSubstr("(ID: GOOD)...OK\n"));
        EXPECT_THAT(host.output(), Not(HasSubstr("error: ")));
    }

    static std::string nested(int levels) {
        std::string text = "<workplaces>\n<workplace id=\"0\">\n";
        for (int level = 2; level < levels; ++level)
            text += "<ports>\n";
        for (int level = 2; level < levels; ++level)
            text += "</ports>\n";
        return text + "</workplace>\n</workplaces>\n";
    }
};

TEST_F(HostFiles, ConfigurationThatNestsTooDeepIsRefusedWithItsLine) {
    configureText(nested(101));
    expectRefusal(file() + " line 101: elements nest deeper than 100 levels");
}

TEST_F(HostFiles, ConfigurationOfAHundredLevelsIsRead) {
    configureText(nested(100));
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), HasSubstr("the workplace is started\n"));
}

TEST_F(HostFiles, ConfigurationOfMoreThanSixteenMegabytesIsRefusedWithItsSize) {
    configureText("<workplaces/>");
    fs::resize_file(file(), 16 * 1024 * 1024 + 1);
    expectRefusal(file() + " has 16777217 bytes; at most 16 MB are read");
}

TEST_F(HostFiles, ConfigurationOfTenMegabytesIsReadAndItsFaultNamedWithItsLine) {
    std::string text = "<workplaces>\n";
    int line = 2;
    for (; text.size() < 10'000'000; ++line)
        text += "<workplace id=\"0\"><ports/></workplace>\n";
    configureText(text + "<desk/>\n</workplaces>\n");
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.log(), HasSubstr("HOST: " + file() + " line " + std::to_string(line) +
                                      ": an element <desk> may not"));
    EXPECT_THAT(host.log(), testing::ContainsRegex("Parse error in \"/proc/self/fd/[0-9]+\" line " +
                                                   std::to_string(line) + "\n"));
}

TEST_F(HostFiles, FiftyThousandEntriesOfAnUnknownTypeStart) {
    std::string entries;
    for (int i = 0; i < 50'000; ++i)
        entries += TestWorkplace::entry("D" + std::to_string(i), "Unknown", "queue");
    workplace().configure(entries);
    HostProcess& host = start();
    host.type("state NONE");
    host.closeInput();
    // A guard only: what grew with the square of the entries took minutes.
    EXPECT_EQ(host.waitForEnd(100), 0);
    // Not the whole log: it has a line for each entry.
    EXPECT_NE(host.log().find("HOST: the workplace is started\n"), std::string::npos);
    EXPECT_THAT(host.output(), HasSubstr("no state value matches NONE\n"));
}

TEST_F(HostFiles, DeviceAsConfigurationIsRefused) {
    fs::create_symlink("/dev/zero", file());
    expectRefusal(file() + " is no regular file");
}

TEST_F(HostFiles, ConfigurationWithADriverWithoutAnIDIsRefusedWithItsLine) {
    workplace().configure(TestWorkplace::entry("A", "Recorder", "direct") +
                          "<mainframeDriver driverType=\"Recorder\"/>\n");
    expectRefusal(file() + " line 5: the mainframeDriver has no driverID; give it one of its own");
}

TEST_F(HostFiles, ConfigurationWithOneIDTwiceIsRefusedWithBothLines) {
    workplace().configure(TestWorkplace::entry("A", "Recorder", "direct") +
                          TestWorkplace::entry("A", "Recorder", "queue"));
    expectRefusal(file() +
                  " line 5: the driver ID \"A\" stands in line 4 already; give each driver one of its own");
}

TEST_F(HostFiles, ConfigurationWithASecondPanelIsRefusedWithItsLine) {
    workplace().configure(TestWorkplace::entry("PANEL", "Panel", "direct"));
    expectRefusal(
        file() +
        " line 4: the panel driver is started without an entry and would run twice; remove the entry");
}

TEST_F(HostFiles, ReloadThatWouldNeverEndIsRefusedWithItsLine) {
    workplace().addModule("Recorder");
    workplace().configure(
        "<mainframeDriver driverType=\"Recorder\" driverID=\"A\" version=\"1.0\" "
        "workingDirectory=\"data/A\" interfaceType=\"direct\"/>\n");
    HostProcess& host = start();
    host.type("reloadDriver A");
    EXPECT_EQ(end(), 3);
    EXPECT_THAT(host.output(),
                HasSubstr("A is not reloaded, nothing is unloaded: " + file() +
                          " line 4: driverID must be the first attribute of a mainframeDriver that "
                          "can be reloaded\n"));
}

TEST_F(HostFiles, DescriptorOfMoreThanSixteenMegabytesIsLeftOutWithItsSize) {
    configureBeside("large.xml", "<mfDriverModule/>");
    fs::resize_file(workplace().drivers() / "large.xml", 16 * 1024 * 1024 + 1);
    expectLeftOut("large.xml", " has 16777217 bytes; at most 16 MB are read");
}

TEST_F(HostFiles, DescriptorThatIsALinkToADeviceIsPassedOver) {
    configureBeside("good.xml", "<mfDriverModule/>");
    fs::create_symlink("/dev/zero", workplace().drivers() / "device.xml");
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.output(), HasSubstr("(ID: GOOD)...OK\n"));
}

TEST_F(HostFiles, DirectoryWithADescriptorsNameIsPassedOver) {
    configureBeside("good.xml", "<mfDriverModule/>");
    fs::create_directory(workplace().drivers() / "folder.xml");
    HostProcess& host = start();
    EXPECT_EQ(end(), 0);
    EXPECT_THAT(host.output(), HasSubstr("(ID: GOOD)...OK\n"));
    EXPECT_THAT(host.output(), Not(HasSubstr("error: ")));
}
