#include "CsvText.h"

#include "RecordingFixture.h"

namespace {

class CsvTextTest : public RecordingFixture {
protected:
    CsvTextTest() {
        m_names.define(1u << 16, "LAMP");
        m_record.number = 7;
        m_record.time = at(0);
        m_record.key = 1u << 16;
    }

    stream::KeyNames m_names;
    stream::StreamRecord m_record;
};

}  // namespace

TEST_F(CsvTextTest, RowHasTheValueAndTheText) {
    EXPECT_EQ("number,time,kind,driver,key,value,text\r\n", csv::head());
    m_record.kind = stream::EKind::Int;
    m_record.keyText = "LAMP.LEVEL";
    m_record.value = 5;
    EXPECT_EQ("7,2026-11-22T14:03:22.181123Z,value,LAMP,LAMP.LEVEL,5,LAMP.LEVEL = 5\r\n",
              csv::rowOf(m_record, m_names));
}

TEST_F(CsvTextTest, WhatWouldEndACellIsQuoted) {
    m_record.kind = stream::EKind::Text;
    m_record.keyText = "LAMP,1";
    m_record.text = "a \"b\"\nc";
    EXPECT_EQ(
        "7,2026-11-22T14:03:22.181123Z,value,LAMP,\"LAMP,1\",\"a \"\"b\"\"\\nc\","
        "\"LAMP,1 = \"\"a \"\"b\"\"\\nc\"\"\"\r\n",
        csv::rowOf(m_record, m_names));
}

TEST_F(CsvTextTest, GapIsARow) {
    EXPECT_EQ("8,2026-11-22T14:03:22.181123Z,gap,,,,3 records never completed\r\n",
              csv::rowOf({.first = 8, .next = 11, .from = {}, .to = at(0), .count = 3}));
}
