#include "KeyNames.h"

#include <gtest/gtest.h>

#include <string>

#include "StreamRecord.h"

using stream::EKind;
using stream::KeyNames;
using stream::StreamRecord;

namespace {

StreamRecord record(EKind kind, std::uint32_t key, std::string text = {}, std::string keyText = {}) {
    StreamRecord made;
    made.kind = kind;
    made.key = key;
    made.text = std::move(text);
    made.keyText = std::move(keyText);
    return made;
}

}  // namespace

TEST(KeyNames, LearnsFromDefinitionsOnly) {
    KeyNames sut;
    sut.learn(record(EKind::Define, 3u << 16, "AXIS1"));
    sut.learn(record(EKind::Define, 3u << 16 | 7, "AXIS1.POSITION"));
    sut.learn(record(EKind::Event, 4u << 16, "AXIS2"));
    EXPECT_EQ(sut.size(), 2u);
    EXPECT_EQ(sut.driver(3), "AXIS1");
    EXPECT_EQ(sut.key(record(EKind::Int, 3u << 16 | 7)), "AXIS1.POSITION");
}

TEST(KeyNames, HostIsAlwaysKnown) {
    EXPECT_EQ(KeyNames().driver(0), "host");
}

TEST(KeyNames, WhatIsNotKnownIsANumber) {
    const KeyNames sut;
    EXPECT_EQ(sut.driver(12), "#12");
    EXPECT_EQ(sut.key(record(EKind::Int, 3u << 16 | 7)), "#7");
    EXPECT_EQ(sut.find(3u << 16), nullptr);
}

TEST(KeyNames, KeyIsTheTextWhereThereIsOne) {
    KeyNames sut;
    sut.define(3u << 16 | 7, "AXIS1.POSITION");
    EXPECT_EQ(sut.key(record(EKind::Int, 3u << 16, {}, "AXIS1.OTHER")), "AXIS1.OTHER");
    EXPECT_EQ(sut.key(record(EKind::Exit, 3u << 16)), "");
}

TEST(KeyNames, DamageCannotFillTheMemory) {
    KeyNames sut;
    for (std::uint32_t key = 0; key < KeyNames::s_most + 10; ++key)
        sut.define(key, "");
    EXPECT_EQ(sut.size(), KeyNames::s_most);
    sut.define(5, "known");
    EXPECT_EQ(*sut.find(5), "known");
}
