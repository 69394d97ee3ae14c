#include "DoctorReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::HasSubstr;
using testing::StartsWith;

HostSurvey::Process process(int pid, const std::string& title, char state = 'S') {
    HostSurvey::Process made;
    made.facts.pid = pid;
    made.facts.state = state;
    made.facts.command = {title, "--config", "w\x1b.xml"};
    made.facts.directory = "/srv";
    made.facts.age = std::chrono::seconds(300);
    made.facts.memoryKb = 20480;
    made.facts.threads.push_back({pid, "commands", 'S', "futex_wait", 0, ""});
    made.load.push_back(3);
    return made;
}

HostSurvey surveyOf(HostSurvey::Socket socket) {
    HostSurvey survey;
    survey.hosts.push_back(
        {process(10, "mfhost"), {std::move(socket)}, {process(11, "SYS MFD Console", 'T')}});
    return survey;
}

}  // namespace

TEST(DoctorReport, NoHostIsSaid) {
    EXPECT_EQ("no mfhost runs here, as far as this user can see\n", DoctorReport(HostSurvey(), false).text());
}

TEST(DoctorReport, HostThatAnswersHasItsThreadsAndDrivers) {
    const HostSurvey survey =
        surveyOf({"/run/mfhost.sock", 10, R"({"workplace":"/etc/w.xml","version":"0.1.0"})", ""});
    EXPECT_EQ(
        "mfhost, process 10: answers\n"
        "  socket     /run/mfhost.sock, workplace /etc/w.xml, version 0.1.0\n"
        "  command    mfhost --config w\\x1b.xml\n"
        "  in         /srv\n"
        "  since      5 min, user 0, 20 MB, 0 descriptors\n"
        "  thread  name      state   waits in    processor\n"
        "  10      commands  sleeps  futex_wait  3 %\n"
        "  driver SYS, process 11: it is stopped; kill -CONT 11 lets it go on\n"
        "    command    SYS MFD Console --config w\\x1b.xml\n"
        "    in         /srv\n"
        "    since      5 min, user 0, 20 MB, 0 descriptors\n"
        "    thread  name      state   waits in    processor\n"
        "    11      commands  sleeps  futex_wait  3 %\n"
        "\n",
        DoctorReport(survey, false).text());
}

TEST(DoctorReport, CommandThatHoldsAHostUpIsTheFirstThingSaid) {
    const HostSurvey survey = surveyOf({"/run/mfhost.sock", 10, R"({"workplace":"/etc/w.xml","version":"1"})",
                                        "", "sendFID A.PING has been under way for 9 s"});
    EXPECT_THAT(DoctorReport(survey, false).text(),
                StartsWith("mfhost, process 10: answers, but sendFID A.PING has been under way for 9 s\n"));
    EXPECT_EQ("sendFID A.PING has been under way for 9 s",
              DoctorReport(survey, false).json()["hosts"][0]["sockets"][0]["heldUp"]);
}

TEST(DoctorReport, HostThatDoesNotAnswerIsTheFirstThingSaidAndHasStacks) {
    const HostSurvey survey = surveyOf({"/run/mfhost.sock", 10, "", "no answer"});
    const std::string text = DoctorReport(survey, false).text();
    EXPECT_THAT(text, StartsWith("mfhost, process 10: DOES NOT ANSWER; its stacks tell where it waits\n"
                                 "  socket     /run/mfhost.sock: no answer\n"));
    EXPECT_THAT(text, HasSubstr("\n  stacks\n"));
}

TEST(DoctorReport, WhatIsLeftIsTold) {
    HostSurvey survey;
    survey.orphans.push_back(process(12, "LAMP MFD Console"));
    survey.deadSockets.push_back({"/run/mfhost-2.sock", 0, "", "Connection refused"});
    survey.deadSockets.push_back({"/run/mfhost-3.sock", 99, "{}", ""});
    survey.queueDirectories.push_back(
        {"/dev/shm/mfd-0-abcdef", true, false, {{"LAMP_INQ", 4096, std::chrono::seconds(9)}}, {}});
    survey.queueDirectories.push_back({"/dev/shm/mfd-0-ghijkl", true, true, {}, {}});
    const std::string text = DoctorReport(survey, false).text();
    EXPECT_THAT(text,
                HasSubstr("left: driver LAMP, process 12, whose parent is no host that is seen here\n"));
    EXPECT_THAT(text,
                HasSubstr("left: socket /run/mfhost-2.sock, at which nobody listens (Connection refused)\n"));
    EXPECT_THAT(text, HasSubstr("other: socket /run/mfhost-3.sock, at which process 99 listens\n"));
    EXPECT_THAT(text, HasSubstr("queues, and no host has their lock: /dev/shm/mfd-0-abcdef\n"
                                "  LAMP_INQ, 4096 bytes, written 9 s ago\n"));
    EXPECT_THAT(text, HasSubstr("queues: /dev/shm/mfd-0-ghijkl\n"));
}

TEST(DoctorReport, RecordingIsToldApartFromQueues) {
    HostSurvey survey = surveyOf({"/run/mfhost.sock", 10, R"({"workplace":"/etc/w.xml","version":"1"})", ""});
    survey.hosts[0].process.facts.queues = {"/run/q/SYS_INQ"};
    survey.hosts[0].process.facts.rings = {"/run/q/stream.ring"};
    survey.queueDirectories.push_back({"/run/q",
                                       true,
                                       true,
                                       {{"SYS_INQ", 4096, std::chrono::seconds(9)}},
                                       {{"stream.ring", 65536, std::chrono::seconds(2)}}});
    const std::string text = DoctorReport(survey, false).text();
    EXPECT_THAT(text, HasSubstr("  queue      /run/q/SYS_INQ\n  recording  /run/q/stream.ring\n"));
    EXPECT_THAT(text, HasSubstr("queues: /run/q\n"
                                "  SYS_INQ, 4096 bytes, written 9 s ago\n"
                                "  recording: stream.ring, 65536 bytes, written 2 s ago\n"));
    const auto json = DoctorReport(survey, false).json();
    EXPECT_EQ(R"(["/run/q/SYS_INQ"])", json["hosts"][0]["queues"].dump());
    EXPECT_EQ(R"(["/run/q/stream.ring"])", json["hosts"][0]["rings"].dump());
    EXPECT_EQ(R"([{"bytes":4096,"name":"SYS_INQ","writtenMs":9000}])",
              json["queueDirectories"][0]["files"].dump());
    EXPECT_EQ(R"([{"bytes":65536,"name":"stream.ring","writtenMs":2000}])",
              json["queueDirectories"][0]["recording"].dump());
}

TEST(DoctorReport, JsonHasTheSame) {
    const HostSurvey survey = surveyOf({"/run/mfhost.sock", 10, "", "no answer"});
    const auto json = DoctorReport(survey, false).json();
    EXPECT_EQ(false, json["well"]);
    EXPECT_EQ(10, json["hosts"][0]["pid"]);
    EXPECT_EQ(false, json["hosts"][0]["answers"]);
    EXPECT_EQ("no answer", json["hosts"][0]["sockets"][0]["silence"]);
    EXPECT_EQ("SYS", json["hosts"][0]["drivers"][0]["driver"]);
    EXPECT_EQ("it is stopped; kill -CONT 11 lets it go on", json["hosts"][0]["drivers"][0]["trouble"]);
    EXPECT_EQ("commands", json["hosts"][0]["threads"][0]["name"]);
}
