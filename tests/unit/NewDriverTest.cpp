#include "NewDriver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

class NewDriverTest : public testing::Test {
protected:
    EExit write(const std::string& name, const std::string& directory) {
        m_out.str({});
        m_err.str({});
        return NewDriver(m_screen).write(name, m_directory.path(directory));
    }
    std::vector<std::string> written(const std::string& directory) const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(m_directory.path(directory)))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    TemporaryDirectory m_directory;
    std::ostringstream m_out;
    std::ostringstream m_err;
    const Screen m_screen{m_out, m_err};
};

TEST_F(NewDriverTest, WritesAProject) {
    EXPECT_EQ(write("lamp", "a/lamp"), EExit::Done);
    EXPECT_EQ(written("a/lamp"),
              (std::vector<std::string>{".gitignore", ".gitlab-ci.yml", "CMakeLists.txt", "LampDriver.cpp",
                                        "LampDriverTest.cpp", "README.md", "lamp.xml", "workplace.xml"}));
    EXPECT_THAT(m_directory.read("a/lamp/CMakeLists.txt"),
                HasSubstr("mfd_add_driver(lamp SOURCES LampDriver.cpp)\n"));
    EXPECT_THAT(m_directory.read("a/lamp/lamp.xml"),
                HasSubstr("<module_type name=\"lamp.so\" type=\"Lamp\" version=\"1.0\""));
    EXPECT_THAT(m_directory.read("a/lamp/LampDriver.cpp"), HasSubstr("\nMFD_DRIVER(LampDriver);\n"));
    EXPECT_THAT(m_directory.read("a/lamp/LampDriverTest.cpp"), HasSubstr("{GetParam(), \"LAMP1\"}"));
    const std::string place = m_directory.path("a/lamp");
    EXPECT_EQ(m_out.str(), "Written to " + place +
                               ": CMakeLists.txt LampDriver.cpp LampDriverTest.cpp lamp.xml workplace.xml "
                               "README.md .gitlab-ci.yml .gitignore\nBuild and test it:\n  cmake -S " +
                               place + " -B " + place + "/build && cmake --build " + place +
                               "/build && ctest --test-dir " + place + "/build --output-on-failure\n");
    EXPECT_EQ(m_err.str(), "");
}

TEST_F(NewDriverTest, LeavesNoPlaceUnfilled) {
    for (const NewDriver::File& file : NewDriver::files("MainLamp_2")) {
        EXPECT_THAT(file.name + file.text, Not(HasSubstr("@"))) << file.name;
        if (file.name == "mainlamp_2.xml") {
            EXPECT_THAT(file.text, HasSubstr("name=\"mainlamp_2.so\" type=\"MainLamp_2\""));
        }
    }
}

TEST_F(NewDriverTest, RefusesBadNames) {
    for (const char* name : {"", "2lamp", "la mp", "la-mp", "../lamp", "l\xc3\xa4mp", "_lamp"}) {
        EXPECT_EQ(write(name, "x"), EExit::WrongUsage) << name;
        EXPECT_THAT(m_err.str(),
                    HasSubstr("is no name of a driver: a letter, then at most 39 letters, digits and _, "
                              "such as lamp\n"));
    }
    EXPECT_EQ(NewDriver::nameFault(std::string(40, 'x')), "");
    EXPECT_NE(NewDriver::nameFault(std::string(41, 'x')), "");
    EXPECT_EQ(write("Panel", "x"), EExit::WrongUsage);
    EXPECT_EQ(m_err.str(),
              "mfctl: \"Panel\" cannot be the name of a driver, it has a meaning of its own; \"my_panel\" "
              "would be one\n");
    EXPECT_EQ(write("test", "x"), EExit::WrongUsage);
    EXPECT_FALSE(m_directory.contains("x"));
}

TEST_F(NewDriverTest, ReplacesNoFile) {
    m_directory.write("lamp/lamp.xml", "mine");
    EXPECT_EQ(write("lamp", "lamp"), EExit::Failed);
    EXPECT_EQ(m_err.str(),
              "mfctl: " + m_directory.path("lamp/lamp.xml") + " is there already; nothing was written\n");
    EXPECT_EQ(written("lamp"), std::vector<std::string>{"lamp.xml"});
    EXPECT_EQ(m_directory.read("lamp/lamp.xml"), "mine");
}

TEST_F(NewDriverTest, StandsBesideOtherFiles) {
    m_directory.write("lamp/LICENSE", "mine");
    EXPECT_EQ(write("lamp", "lamp"), EExit::Done);
    EXPECT_EQ(written("lamp").size(), 9u);
}

TEST_F(NewDriverTest, SaysWhyADirectoryCannotBeMade) {
    m_directory.write("lamp", "a file");
    EXPECT_EQ(write("lamp", "lamp/x"), EExit::Failed);
    EXPECT_EQ(m_err.str(),
              "mfctl: " + m_directory.path("lamp/x") + ": Not a directory; nothing was written\n");
}

}  // namespace
