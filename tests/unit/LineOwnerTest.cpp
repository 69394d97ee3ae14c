#include "LineOwner.h"

#include <gtest/gtest.h>

namespace {

class LineOwnerTest : public testing::Test {
protected:
    LineOwnerTest() {
        m_sut.setDrivers([](const std::string& driverID) { return driverID == "SYS" || driverID == "A B"; });
    }

    LineOwner m_sut;
};

TEST_F(LineOwnerTest, LineBeginsWithTheDriversID) {
    EXPECT_EQ(m_sut.driverOf("HOST", "SYS: process 17 ended"), "SYS");
    EXPECT_EQ(m_sut.driverOf("HOST", "A B: process 17 ended"), "A B");
}

TEST_F(LineOwnerTest, WhatNoDriverIsIsNone) {
    EXPECT_EQ(m_sut.driverOf("HOST", "shutting down: SIGTERM"), "");
    EXPECT_EQ(m_sut.driverOf("HOST", "SYSTEM: full"), "");
    EXPECT_EQ(m_sut.driverOf("HOST", "SYS"), "");
    EXPECT_EQ(m_sut.driverOf("HOST", "SYS:x"), "");
    EXPECT_EQ(m_sut.driverOf("HOST", ""), "");
}

TEST_F(LineOwnerTest, OutputMayBeNamedAfterTheDriver) {
    EXPECT_EQ(m_sut.driverOf("SYS", "load is 0.5"), "SYS");
}

TEST_F(LineOwnerTest, LineOfADriverProcessNamesItBeforeTheOutput) {
    EXPECT_EQ(m_sut.driverOf("SYS MFD", "Runs sysmon.so"), "SYS");
    EXPECT_EQ(m_sut.driverOf("A B MFD", "Runs sysmon.so"), "A B");
    EXPECT_EQ(m_sut.driverOf("SYSTEM MFD", "text"), "");
    EXPECT_EQ(m_sut.driverOf(" MFD", "text"), "");
    EXPECT_EQ(m_sut.driverOf("", "text"), "");
}

TEST_F(LineOwnerTest, WithoutAHostThereIsNone) {
    m_sut.setDrivers(nullptr);
    EXPECT_EQ(m_sut.driverOf("HOST", "SYS: process 17 ended"), "");
}

}  // namespace
