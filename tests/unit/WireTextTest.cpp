#include "WireText.h"

#include <gtest/gtest.h>

using namespace std::string_literals;
using stream::wireText;

TEST(WireText, TakesEachFormOfAMessageApart) {
    EXPECT_EQ(wireText("SETCFG\x03\0\0\0\5AXIS1\5axis1\0\4eth0\0\2/n"s),
              "SETCFG 3 \"AXIS1\" \"axis1\" \"\" \"eth0\" \"\" \"/n\"");
    EXPECT_EQ(wireText("SNDFDP\4MOVE\2\2to\00412.5\5speed\0013"s), "SNDFDP \"MOVE\" to=\"12.5\" speed=\"3\"");
    EXPECT_EQ(wireText("DSPFID\7LAMP.ON\0"s), "DSPFID \"LAMP.ON\"");
    EXPECT_EQ(wireText("SETVAL\4MODE\4auto"s), "SETVAL \"MODE\" \"auto\"");
    EXPECT_EQ(wireText("SETVAF\4TEMP\0\0\xac\x41"s), "SETVAF \"TEMP\" 21.5");
    EXPECT_EQ(wireText("SETVAI\1N\xfb\xff\xff\xff"s), "SETVAI \"N\" -5");
    EXPECT_EQ(wireText("SETVAB\2ON\1"s), "SETVAB \"ON\" true");
    EXPECT_EQ(wireText("SETVAB\2ON\0"s), "SETVAB \"ON\" false");
    EXPECT_EQ(wireText("DEINIT"), "DEINIT");
}

TEST(WireText, WhatDoesNotFitTheFormIsShownAsBytes) {
    EXPECT_EQ(wireText("SETVAL\4MODE\7au"s), "SETVAL \"MODE\" + 07 61 75");
    EXPECT_EQ(wireText("SETVAI\1N\5\0"s), "SETVAI \"N\" + 05 00");
    EXPECT_EQ(wireText("DSPFID\1A\2\1x\1"s), "DSPFID \"A\" + 02 01 78 01");
    EXPECT_EQ(wireText("DEINIT!"), "DEINIT + 21");
    EXPECT_EQ(wireText("XXXXXX\1\xff"s), "XXXXXX + 01 ff");
    EXPECT_EQ(wireText("SET"), "SET");
    EXPECT_EQ(wireText(""), "");
}
