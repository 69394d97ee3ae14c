#include "RecordingList.h"

#include "RecordingFixture.h"

namespace {

class RecordingListTest : public RecordingFixture {
protected:
    RecordingListTest() {
        m_pWriter->hang(at(0), driver("LAMP"), "no answer");
        m_pWriter->hang(at(60'000'000), driver("LAMP"), "no answer");
    }
    std::string directory() const { return m_directory.path("recording"); }
    std::string listed(const RecordingPlace& place) {
        RecordingList::of(place).print(screen());
        return std::exchange(m_out, std::ostringstream()).str();
    }
};

}  // namespace

TEST_F(RecordingListTest, ListsRingsSegmentsOfEachHostAndBoxes) {
    keep("00000001.seg", 2, 2);
    keep("00000002.seg", 3, 3);
    keep("blackbox/20261122-LAMP-hang", 3, 3);
    keep("kept/20261122.seg", 2, 3);
    const std::string found = listed({ringPath(), directory()});
    EXPECT_THAT(found, testing::ContainsRegex("ring +2026-11-22 14:03:22  2026-11-22 14:04:22  2 +"));
    EXPECT_THAT(found,
                testing::ContainsRegex("segments +2026-11-22 14:03:22  2026-11-22 14:04:22  2 +[0-9]+ B +" +
                                       directory() + "\n"));
    EXPECT_THAT(found,
                testing::ContainsRegex("black box +2026-11-22 14:04:22  2026-11-22 14:04:22  1 +[0-9]+ B +" +
                                       directory() + "/blackbox/20261122-LAMP-hang\n"));
    EXPECT_THAT(found,
                testing::ContainsRegex("kept +2026-11-22 14:03:22  2026-11-22 14:04:22  2 +[0-9]+ B +" +
                                       directory() + "/kept/20261122.seg\n"));
}

TEST_F(RecordingListTest, PathsAreWholeHoweverNarrowTheTerminalIs) {
    keep("blackbox/20261122-LAMP-hang", 3, 3);
    Screen narrow = screen();
    narrow.look.width = 80;
    RecordingList::of({"", directory()}).print(narrow);
    EXPECT_THAT(m_out.str(), testing::HasSubstr("  " + directory() + "/blackbox/20261122-LAMP-hang\n"));
}

TEST_F(RecordingListTest, EachHostHasARowOfItsSegments) {
    keep("00000001.seg", 2, 2);
    startAnew("i2");
    m_pWriter->hang(at(90'000'000), driver("LAMP"), "no answer");
    keep("00000002.seg", 2, 2);
    const auto json = RecordingList::of({"", directory()}).json();
    ASSERT_EQ(2u, json.size());
    EXPECT_EQ("2026-11-22T14:03:22.181123Z", json[0]["to"]);
    EXPECT_EQ("2026-11-22T14:04:52.181123Z", json[1]["from"]);
    EXPECT_EQ(1, json[1]["records"]);
}

TEST_F(RecordingListTest, DeadRingsAndWhatIsBrokenAreNamed) {
    m_directory.write("recording/00000001.seg", "nothing");
    die();
    const std::string found = listed({ringPath(), directory()});
    EXPECT_THAT(found, testing::HasSubstr("ring of a host that has ended  2026-11-22 14:03:22"));
    EXPECT_THAT(found, testing::HasSubstr("00000001.seg\": no recording is in it\n"));
}

TEST_F(RecordingListTest, NothingIsSaid) {
    m_directory.write("recording/notes", "");
    EXPECT_EQ("nothing has been recorded\n", listed({"", directory()}));
}
