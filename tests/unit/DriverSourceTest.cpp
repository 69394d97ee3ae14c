#include "DriverSource.h"

#include <gtest/gtest.h>

namespace {

DriverSource source() {
    DriverSource source;
    source.entry.driverID = "A";
    source.entry.driverType = "Axis";
    source.entry.version = "1.0";
    source.entry.workingDirectory = "data/A";
    source.entry.interfaceWord = "queue";
    source.module = {"/drivers/axis.so", true, "1234", 10, 5};
    return source;
}

}  // namespace

TEST(DriverSource, SameIsNoDifference) {
    EXPECT_EQ("", source().difference(source()));
}

TEST(DriverSource, LineOfTheEntryIsNoDifference) {
    DriverSource later = source();
    later.entry.line = 17;
    EXPECT_EQ("", source().difference(later));
}

TEST(DriverSource, EachAttributeCounts) {
    using Entry = WorkplaceFile::Entry;
    const std::pair<std::string Entry::*, const char*> attributes[] = {
        {&Entry::driverType, "driverType"},
        {&Entry::version, "version"},
        {&Entry::workingDirectory, "workingDirectory"},
        {&Entry::ipAddress, "ipAddress"},
        {&Entry::networkAdapter, "networkAdapter"},
        {&Entry::interfaceWord, "interfaceType"},
    };
    for (const auto& [attribute, name] : attributes) {
        DriverSource later = source();
        later.entry.*attribute = "other";
        EXPECT_EQ("entry changed (" + std::string(name) + ")", source().difference(later));
    }
    DriverSource later = source();
    later.entry.workplaceID = 3;
    later.entry.ipAddress = "192.0.2.7";
    EXPECT_EQ("entry changed (ipAddress, workplace)", source().difference(later));
}

TEST(DriverSource, ModuleCounts) {
    DriverSource later = source();
    later.module.changed = 6;
    EXPECT_EQ("", source().difference(later));
    later.module.buildID = "5678";
    EXPECT_EQ("module changed", source().difference(later));
    later.module.isThere = false;
    EXPECT_EQ("module is missing", source().difference(later));
    EXPECT_EQ("module is new", later.difference(source()));
    later = source();
    later.module.path = "/drivers/other.so";
    EXPECT_EQ("module is another file", source().difference(later));
}

TEST(DriverSource, SignatureCounts) {
    DriverSource later = source();
    later.isSigned = true;
    EXPECT_EQ("the file is signed by a trusted key now", source().difference(later));
    EXPECT_EQ("the file is no longer signed by a trusted key", later.difference(source()));
}
