#include "DriverRuns.h"

#include <gtest/gtest.h>

#include "DriverTable.h"
#include "JsonText.h"
#include "StreamFixture.h"

namespace {

class DriverRunsTest : public StreamFixture {
protected:
    static std::chrono::system_clock::time_point when(int second) {
        return std::chrono::time_point_cast<std::chrono::system_clock::duration>(at(second * 1'000'000));
    }
    static stream::StreamRecord record(stream::EKind kind, int second, std::uint32_t value,
                                       const std::string& text, std::uint16_t driver = 1) {
        stream::StreamRecord made;
        made.kind = kind;
        made.time = at(second * 1'000'000);
        made.key = std::uint32_t{driver} << 16;
        made.value = value;
        made.text = text;
        return made;
    }
    static std::string text(const DriverRuns& sut, const std::vector<RecordedPast::Hole>& holes = {}) {
        JsonText json;
        json.beginObject();
        sut.write(json, holes);
        json.endObject();
        return json.take();
    }
    static std::vector<LifeStep> starts(std::size_t count) {
        std::vector<LifeStep> steps;
        for (std::size_t i = 1; i <= count; ++i)
            steps.push_back({ELifeStep::Start, when(static_cast<int>(i)), static_cast<int>(i), i, ""});
        return steps;
    }
    static stream::KeyNames names() {
        stream::KeyNames names;
        names.define(1u << 16, "AXIS1");
        names.define(2u << 16, "LAMP");
        return names;
    }
};

}  // namespace

TEST_F(DriverRunsTest, NewestStepComesFirst) {
    const DriverRuns sut("AXIS1",
                         {{ELifeStep::Start, when(0), 42, 1, ""},
                          {ELifeStep::Answer, when(1), 42, 1, ""},
                          {ELifeStep::End, when(9), 42, 1, "signal 11"}},
                         10);
    EXPECT_EQ(
        R"({"driver":"AXIS1","more":false,"steps":[)"
        R"({"time":"2026-11-22T14:03:31.181123Z","step":"end","pid":42,"start":1,"text":"signal 11"},)"
        R"({"time":"2026-11-22T14:03:23.181123Z","step":"answer","pid":42,"start":1,"text":""},)"
        R"({"time":"2026-11-22T14:03:22.181123Z","step":"start","pid":42,"start":1,"text":""}],"gaps":[]})",
        text(sut));
}

TEST_F(DriverRunsTest, RecordedStepsOfTheDriverComeBeforeThem) {
    DriverRuns sut("AXIS1", {{ELifeStep::Parked, when(0), 0, 0, "parked by anna"}}, 10);
    for (const auto& each :
         {record(stream::EKind::Start, -20, 7, "again"), record(stream::EKind::Exit, -19, 9, "of LAMP", 2),
          record(stream::EKind::Log, -18, 4, "a line"), record(stream::EKind::Hang, -17, 0, "no answer"),
          record(stream::EKind::Exit, -16, 9, "signal 9"), record(stream::EKind::Restart, -15, 0, "at once")})
        sut.take(each, names(), false);
    EXPECT_EQ(
        R"({"driver":"AXIS1","more":false,"steps":[)"
        R"({"time":"2026-11-22T14:03:22.181123Z","step":"parked","pid":null,"start":null,"text":"parked by anna"},)"
        R"({"time":"2026-11-22T14:03:07.181123Z","step":"restart","pid":null,"start":null,"text":"at once"},)"
        R"({"time":"2026-11-22T14:03:06.181123Z","step":"end","pid":null,"start":null,"text":"signal 9"},)"
        R"({"time":"2026-11-22T14:03:05.181123Z","step":"hang","pid":null,"start":null,"text":"no answer"},)"
        R"({"time":"2026-11-22T14:03:02.181123Z","step":"start","pid":7,"start":null,"text":"again"}],"gaps":[]})",
        text(sut));
}

TEST_F(DriverRunsTest, MoreThanTheLimitAreSaidToBeThere) {
    DriverRuns sut("AXIS1", starts(1), 2);
    for (const int second : {-3, -2})
        sut.take(record(stream::EKind::Exit, second, 0, "e"), names(), false);
    EXPECT_EQ(
        R"({"driver":"AXIS1","more":true,"steps":[)"
        R"({"time":"2026-11-22T14:03:23.181123Z","step":"start","pid":1,"start":1,"text":""},)"
        R"({"time":"2026-11-22T14:03:20.181123Z","step":"end","pid":null,"start":null,"text":"e"}],"gaps":[]})",
        text(sut));
}

TEST_F(DriverRunsTest, RecordingIsAskedForTheTimeBeforeTheTable) {
    EXPECT_EQ(stream::Time(when(-5)), DriverRuns("A", starts(3), 10).missingBefore(when(-5)));
    // The table may have forgotten what came before its first one.
    const auto full = starts(DriverTable::s_mostSteps);
    EXPECT_EQ(stream::Time(when(1)), DriverRuns("A", full, 500).missingBefore(when(-5)));
    EXPECT_EQ(std::nullopt, DriverRuns("A", starts(3), 3).missingBefore(when(-5)));
}

TEST_F(DriverRunsTest, HolesAreToldButTheOneBeforeAllRecords) {
    const DriverRuns sut("AXIS1", {}, 10);
    using EHole = RecordedPast::EHole;
    EXPECT_EQ(R"({"driver":"AXIS1","more":false,"steps":[],"gaps":[)"
              R"({"reason":"lapped","from":"2026-11-22T14:03:22.181123Z","to":"2026-11-22T14:03:23.181123Z",)"
              R"("text":"newer records took its place"}]})",
              text(sut, {{EHole::NotRecorded, {}, at(0)}, {EHole::Lapped, at(0), at(1'000'000)}}));
    EXPECT_EQ(R"({"driver":"AXIS1","more":true,"steps":[],"gaps":[]})",
              text(sut, {{EHole::NotRead, {}, at(0)}}));
}
