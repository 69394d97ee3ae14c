#include "MDMModuleInfo.h"

#include <gtest/gtest.h>

#include <type_traits>

#include "FakeHost.h"
#include "FlushedOutput.h"
#include "StandardOutput.h"

namespace {

MDMModuleInfo record(const std::string& version, const std::string& type) {
    MDMModuleInfo info;
    info.setMfDriverVersion(version);
    info.setMFDriverType(type);
    return info;
}

}  // namespace

TEST(MDMModuleInfo, AllFieldsAreEmptyAfterConstruction) {
    const MDMModuleInfo sut;
    EXPECT_EQ(sut.getMFDriverFilename(), "");
    EXPECT_EQ(sut.getMFDriverType(), "");
    EXPECT_EQ(sut.getMFDriverDirectory(), "");
    EXPECT_EQ(sut.getMfDriverDescription(), "");
    EXPECT_EQ(sut.getMfDriverVersion(), "");
    EXPECT_EQ(sut.getMfDriverPDLFile(), "");
    EXPECT_EQ(sut.getMfDriverPrefix(), "");
}

TEST(MDMModuleInfo, EachSetterFillsItsOwnField) {
    MDMModuleInfo sut;
    sut.setMFDriverFilename("libAxis.so");
    sut.setMFDriverType("Axis");
    sut.setMFDriverDirectory("/mods");
    sut.setMfDriverDescription("moves");
    sut.setMfDriverVersion("1.0");
    sut.setMfDriverPDLFile("axis.pdl");
    sut.setMfDriverPrefix("AX");
    EXPECT_EQ(sut.getMFDriverFilename(), "libAxis.so");
    EXPECT_EQ(sut.getMFDriverType(), "Axis");
    EXPECT_EQ(sut.getMFDriverDirectory(), "/mods");
    EXPECT_EQ(sut.getMfDriverDescription(), "moves");
    EXPECT_EQ(sut.getMfDriverVersion(), "1.0");
    EXPECT_EQ(sut.getMfDriverPDLFile(), "axis.pdl");
    EXPECT_EQ(sut.getMfDriverPrefix(), "AX");
}

TEST(MDMModuleInfo, SettersReplaceWhatWasThere) {
    MDMModuleInfo sut;
    sut.setMFDriverType("a longer text than fits in place, so that it is kept elsewhere");
    sut.setMFDriverType("Axis");
    EXPECT_EQ(sut.getMFDriverType(), "Axis");
    sut.setMFDriverType("");
    EXPECT_EQ(sut.getMFDriverType(), "");
}

TEST(MDMModuleInfo, SettersKeepACopy) {
    MDMModuleInfo sut;
    std::string text = "Axis";
    sut.setMFDriverType(text);
    text = "other";
    EXPECT_EQ(sut.getMFDriverType(), "Axis");
}

TEST(MDMModuleInfo, AccessorsReferToTheFieldItself) {
    MDMModuleInfo sut;
    const std::string& type = sut.getMFDriverType();
    sut.setMFDriverType("Axis");
    EXPECT_EQ(type, "Axis");
}

TEST(MDMModuleInfo, BytesOfAnyCharacterSetAreKept) {
    MDMModuleInfo sut;
    sut.setMfDriverDescription("Gr\xc3\xb6\xdf\x65");
    EXPECT_EQ(sut.getMfDriverDescription(), "Gr\xc3\xb6\xdf\x65");
}

TEST(MDMModuleInfo, SameVersionAndTypeMatch) {
    EXPECT_TRUE(record("1.0", "Axis").compareString("1.0", "Axis"));
}

TEST(MDMModuleInfo, TypeAloneDoesNotMatch) {
    EXPECT_FALSE(record("1.0", "Axis").compareString("1.1", "Axis"));
}

TEST(MDMModuleInfo, VersionAloneDoesNotMatch) {
    EXPECT_FALSE(record("1.0", "Axis").compareString("1.0", "Spindle"));
}

TEST(MDMModuleInfo, VersionIsTheFirstArgument) {
    EXPECT_FALSE(record("1.0", "Axis").compareString("Axis", "1.0"));
}

TEST(MDMModuleInfo, ShorterVersionDoesNotMatch) {
    EXPECT_FALSE(record("1.0", "Axis").compareString("1", "Axis"));
}

TEST(MDMModuleInfo, VersionWithTrailingBlankDoesNotMatch) {
    EXPECT_FALSE(record("1.0", "Axis").compareString("1.0 ", "Axis"));
}

TEST(MDMModuleInfo, VersionInAnotherCaseDoesNotMatch) {
    EXPECT_FALSE(record("beta", "Axis").compareString("Beta", "Axis"));
}

TEST(MDMModuleInfo, TypePrefixDoesNotMatch) {
    EXPECT_FALSE(record("1.0", "Axis").compareString("1.0", "Ax"));
    EXPECT_FALSE(record("1.0", "Ax").compareString("1.0", "Axis"));
}

TEST(MDMModuleInfo, TypeInAnotherCaseDoesNotMatch) {
    EXPECT_FALSE(record("1.0", "Axis").compareString("1.0", "axis"));
}

TEST(MDMModuleInfo, BytesBehindAZeroByteAreCompared) {
    EXPECT_FALSE(record(std::string("1\0a", 3), "Axis").compareString(std::string("1\0b", 3), "Axis"));
}

TEST(MDMModuleInfo, EmptyRecordMatchesOnlyEmptyTexts) {
    const MDMModuleInfo sut;
    EXPECT_TRUE(sut.compareString("", ""));
    EXPECT_FALSE(sut.compareString("1.0", ""));
    EXPECT_FALSE(sut.compareString("", "Axis"));
}

TEST(MDMModuleInfo, ShowStatePrintsPdlFileBeforeDescriptionAndNoPrefix) {
    MDMModuleInfo sut;
    sut.setMFDriverFilename("libAxis.so");
    sut.setMFDriverType("Axis");
    sut.setMFDriverDirectory("/mods");
    sut.setMfDriverDescription("moves");
    sut.setMfDriverVersion("1.0");
    sut.setMfDriverPDLFile("axis.pdl");
    sut.setMfDriverPrefix("AX");
    EXPECT_EQ(fakehost::printedBy([&] { sut.showState(); }),
              "MDMModuleInfo:\n"
              "Filename : libAxis.so\n"
              "Type     : Axis\n"
              "Directory: /mods\n"
              "PDL file : axis.pdl\n"
              "Descript.: moves\n"
              "Version  : 1.0\n"
              "\n");
}

TEST(MDMModuleInfo, ShowStateOfAnEmptyRecordPrintsTheLabelsAlone) {
    const MDMModuleInfo sut;
    EXPECT_EQ(fakehost::printedBy([&] { sut.showState(); }),
              "MDMModuleInfo:\n"
              "Filename : \n"
              "Type     : \n"
              "Directory: \n"
              "PDL file : \n"
              "Descript.: \n"
              "Version  : \n"
              "\n");
}

TEST(MDMModuleInfo, ShowStateLogsNothing) {
    fakehost::FakeHost host;
    const MDMModuleInfo sut;
    fakehost::printedBy([&] { sut.showState(); });
    EXPECT_EQ(host.journal().lines(), std::vector<std::string>{});
}

TEST(MDMModuleInfo, ShowStateFlushes) {
    const MDMModuleInfo sut;
    fakehost::StandardOutput output;
    sut.showState();
    const std::string flushed = output.flushed();
    EXPECT_TRUE(flushed.ends_with("Version  : \n\n")) << flushed;
}

TEST(MDMModuleInfo, ShowStateFlushesEachLine) {
    const MDMModuleInfo sut = record("1.0", "Axis");
    FlushedOutput output;
    sut.showState();
    EXPECT_EQ(output.pieces, (std::vector<std::string>{"MDMModuleInfo:\n", "Filename : \n",
                                                       "Type     : Axis\n", "Directory: \n", "PDL file : \n",
                                                       "Descript.: \n", "Version  : 1.0\n", "\n"}));
}

TEST(MDMModuleInfo, IsDeletedThroughItsVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor_v<MDMModuleInfo>);
}
