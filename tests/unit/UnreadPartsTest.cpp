#include "UnreadParts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tinyxml.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// "LINE: TEXT" for each part of the document that is not read.
std::vector<std::string> unread(const std::string& text, const XmlFormat& format) {
    TiXmlDocument document;
    document.Parse(text.c_str());
    EXPECT_TRUE(document.FirstChildElement()) << text;
    std::vector<std::string> words;
    for (const UnreadPart& part : unreadParts(*document.FirstChildElement(), format))
        words.push_back(std::to_string(part.line) + ": " + part.text);
    return words;
}

std::vector<std::string> inWorkplaces(const std::string& text) {
    return unread("<workplaces>\n<workplace id='0'>\n" + text + "</workplace>\n</workplaces>\n",
                  XmlFormat::workplaces());
}

std::vector<std::string> ofDriver(const std::string& attributes) {
    return inWorkplaces("<mainframeDriver driverID='A' " + attributes + "/>\n");
}

}  // namespace

TEST(UnreadParts, AreNoneInAFileWithAllThatIsKnown) {
    EXPECT_THAT(ofDriver("driverType='T' version='1' workingDirectory='d' ipAddress='' networkAdapter='' "
                         "interfaceType='queue'"),
                IsEmpty());
}

TEST(UnreadParts, MisspeltElementNamesTheRightOne) {
    EXPECT_THAT(
        inWorkplaces("<mainframedriver driverID='A'/>\n<mainframeDrivers/>\n"),
        ElementsAre("3: the element <mainframedriver> is unknown, and nothing in it is read; did you "
                    "mean <mainframeDriver>?",
                    "4: the element <mainframeDrivers> is unknown, and nothing in it is read; did you "
                    "mean <mainframeDriver>?"));
}

TEST(UnreadParts, ElementThatIsLikeNoneNamesThemAll) {
    EXPECT_THAT(inWorkplaces("<desk><mainframeDriver/></desk>\n"),
                ElementsAre("3: the element <desk> is unknown, and nothing in it is read; there is "
                            "<mainframeDriver>, <ports>"));
}

TEST(UnreadParts, MisspeltAttributeNamesTheRightOne) {
    EXPECT_THAT(
        ofDriver("driverTyp='T'"),
        ElementsAre("3: the attribute \"driverTyp\" of <mainframeDriver> is unknown and not read; did "
                    "you mean \"driverType\"?"));
    EXPECT_THAT(ofDriver("Version='1'"),
                ElementsAre("3: the attribute \"Version\" of <mainframeDriver> is unknown and not read; did "
                            "you mean \"version\"?"));
}

TEST(UnreadParts, AbbreviatedAttributeNamesTheWholeOne) {
    EXPECT_THAT(ofDriver("workdir='d'"),
                ElementsAre("3: the attribute \"workdir\" of <mainframeDriver> is unknown and not read; did "
                            "you mean \"workingDirectory\"?"));
    EXPECT_THAT(ofDriver("adapter='eth1'"),
                ElementsAre("3: the attribute \"adapter\" of <mainframeDriver> is unknown and not read; did "
                            "you mean \"networkAdapter\"?"));
}

TEST(UnreadParts, AttributeThatIsLikeNoneNamesThemAll) {
    EXPECT_THAT(ofDriver("x='1'"),
                ElementsAre("3: the attribute \"x\" of <mainframeDriver> is unknown and not read; there is "
                            "\"driverID\", \"driverType\", \"version\", \"workingDirectory\", \"ipAddress\", "
                            "\"networkAdapter\", \"interfaceType\""));
}

TEST(UnreadParts, OtherNamespacesAreNotMeant) {
    EXPECT_THAT(inWorkplaces("<x:note x:by='me'>text</x:note>\n"
                             "<mainframeDriver driverID='A' x:note='1' xmlns='u' xmlns:x='v'><x:y/>"
                             "</mainframeDriver>\n"),
                IsEmpty());
}

TEST(UnreadParts, WhatIsInPortsIsNotLookedAt) {
    EXPECT_THAT(inWorkplaces("<ports desk='1'><mainframedriver/></ports>\n"), IsEmpty());
}

TEST(UnreadParts, AttributeOfAWorkplaceAndOfTheRoot) {
    EXPECT_THAT(
        unread("<workplaces version='1'>\n<workplace ID='0'/>\n</workplaces>", XmlFormat::workplaces()),
        ElementsAre("1: the attribute \"version\" of <workplaces> is unknown and not read",
                    "2: the attribute \"ID\" of <workplace> is unknown and not read; did you mean "
                    "\"id\"?"));
}

TEST(UnreadParts, ElementWhereTheFormatEndsIsToldByItsReader) {
    EXPECT_THAT(unread("<workplaces><desk/></workplaces>", XmlFormat::workplaces()), IsEmpty());
    EXPECT_THAT(unread("<mfDriverModule><moduletype/></mfDriverModule>", XmlFormat::descriptor()), IsEmpty());
}

TEST(UnreadParts, ElementInADriverEntryIsMeantAsAnAttribute) {
    EXPECT_THAT(
        inWorkplaces("<mainframeDriver driverID='A'>\n<networkAdapter>eth1</networkAdapter>\n"
                     "<note/>\n</mainframeDriver>\n"),
        ElementsAre("4: the element <networkAdapter> in <mainframeDriver> is not read; write it as the "
                    "attribute networkAdapter=\"...\"",
                    "5: the element <note> in <mainframeDriver> is not read, which has attributes "
                    "alone"));
}

TEST(UnreadParts, DriverEntryInADriverEntryIsOneThatWasNotEnded) {
    EXPECT_THAT(inWorkplaces("<mainframeDriver driverID='A'>\n<mainframeDriver driverID='B'/>\n"
                             "</mainframeDriver>\n"),
                ElementsAre("4: the element <mainframeDriver> in <mainframeDriver> is not read; end the one "
                            "around it with \"/>\" before it"));
}

TEST(UnreadParts, AttributeOfADescriptor) {
    EXPECT_THAT(
        unread("<mfDriverModule>\n<module_type name='a.so' typ='A' version='1' descr=''/>\n"
               "</mfDriverModule>",
               XmlFormat::descriptor()),
        ElementsAre("2: the attribute \"typ\" of <module_type> is unknown and not read; did you mean "
                    "\"type\"?",
                    "2: the attribute \"descr\" of <module_type> is unknown and not read; did you mean "
                    "\"description\"?"));
}

TEST(UnreadParts, NamesAreMadePrintable) {
    EXPECT_THAT(inWorkplaces("<\xc2\x9b/>\n"),
                ElementsAre("3: the element <\\u009b> is unknown, and nothing in it is read; there is "
                            "<mainframeDriver>, <ports>"));
}
