#include "DoctorReport.h"

#include <sstream>

#include "AgeText.h"
#include "JsonView.h"
#include "Printable.h"
#include "ProgramOutput.h"
#include "Table.h"

namespace {

using Json = nlohmann::json;

std::string indented(const std::string& text, const std::string& indent) {
    std::istringstream lines(text);
    std::string result;
    for (std::string line; std::getline(lines, line);)
        result += indent + base::printable(line) + "\n";
    return result;
}

std::string stacksOf(const ProcessFacts& facts) {
    std::string text;
    for (const ProcessFacts::Thread& thread : facts.threads) {
        if (!thread.kernelStack.empty())
            text += "in the kernel, thread " + std::to_string(thread.id) + " (" + thread.name + "):\n" +
                    thread.kernelStack;
    }
    const ProgramOutput output = ProgramOutput::of({"eu-stack", "-p", std::to_string(facts.pid)});
    return text + output.text + (output.error.empty() ? "" : output.error + "\n");
}

Json jsonOf(const HostSurvey::Process& process) {
    const ProcessFacts& facts = process.facts;
    Json threads = Json::array();
    for (std::size_t i = 0; i < facts.threads.size(); ++i)
        threads.push_back({{"id", facts.threads[i].id},
                           {"name", facts.threads[i].name},
                           {"state", std::string(1, facts.threads[i].state)},
                           {"waitsIn", facts.threads[i].waitsIn},
                           {"processorPercent", i < process.load.size() ? process.load[i] : 0}});
    return {{"pid", facts.pid},
            {"driver", facts.driverID()},
            {"state", std::string(1, facts.state)},
            {"user", facts.user},
            {"program", facts.program},
            {"directory", facts.directory},
            {"ageMs", std::chrono::milliseconds(facts.age).count()},
            {"memoryKb", facts.memoryKb},
            {"descriptors", facts.descriptors},
            {"queues", facts.queues},
            {"rings", facts.rings},
            {"trouble", HostSurvey::trouble(process)},
            {"threads", threads}};
}

Json jsonOf(const HostSurvey::Socket& socket) {
    return {{"path", socket.path},
            {"pid", socket.pid},
            {"answers", !socket.answer.empty()},
            {"heldUp", socket.heldUp},
            {"silence", socket.silence}};
}

Json jsonOf(const std::vector<HostSurvey::Process>& processes) {
    Json list = Json::array();
    for (const HostSurvey::Process& process : processes)
        list.push_back(jsonOf(process));
    return list;
}

Json jsonOf(const std::vector<HostSurvey::Socket>& sockets) {
    Json list = Json::array();
    for (const HostSurvey::Socket& socket : sockets)
        list.push_back(jsonOf(socket));
    return list;
}

Json jsonOf(const std::vector<HostSurvey::QueueFile>& files) {
    Json list = Json::array();
    for (const HostSurvey::QueueFile& file : files)
        list.push_back({{"name", file.name},
                        {"bytes", file.bytes},
                        {"writtenMs", std::chrono::milliseconds(file.untouched).count()}});
    return list;
}

std::string filesText(const std::string& before, const std::vector<HostSurvey::QueueFile>& files) {
    std::string text;
    for (const HostSurvey::QueueFile& file : files)
        text += base::printable(before + file.name + ", " + std::to_string(file.bytes) + " bytes, written " +
                                base::ageText(file.untouched) + " ago") +
                "\n";
    return text;
}

}  // namespace

DoctorReport::DoctorReport(const HostSurvey& survey, bool hasStacks)
    : m_survey(survey), m_hasStacks(hasStacks) {}

std::string DoctorReport::text() const {
    std::string text;
    if (m_survey.hosts.empty())
        text += "no mfhost runs here, as far as this user can see\n";
    for (const HostSurvey::Host& host : m_survey.hosts)
        text += hostText(host) + "\n";
    return text + leftText();
}

std::string DoctorReport::hostText(const HostSurvey::Host& host) const {
    const ProcessFacts& facts = host.process.facts;
    std::string text = "mfhost, process " + std::to_string(facts.pid) + ": ";
    const std::string trouble = HostSurvey::trouble(host.process);
    const std::string held = trouble.empty() ? base::printable(host.heldUp()) : trouble;
    if (host.answers())
        text += held.empty() ? "answers" : "answers, but " + held;
    else if (host.sockets.empty())
        text += trouble.empty() ? "no control socket of it is known here" : trouble;
    else
        text += "DOES NOT ANSWER" + (trouble.empty() ? "; its stacks tell where it waits" : ": " + trouble);
    text += "\n";
    for (const HostSurvey::Socket& socket : host.sockets) {
        const Json answer = Json::parse(socket.answer, nullptr, false);
        const JsonView view(answer);
        text += "  socket     " + base::printable(socket.path);
        if (!socket.answer.empty())
            text += base::printable(", workplace " + view.text("workplace") + ", version " +
                                    view.text("version"));
        else
            text += base::printable(": " + socket.silence);
        text += "\n";
    }
    const bool isSilent = !host.answers() && !host.sockets.empty();
    text += processText(host.process, "  ", m_hasStacks || isSilent);
    for (const HostSurvey::Process& driver : host.drivers) {
        const std::string driverTrouble = HostSurvey::trouble(driver);
        text += "  driver " + base::printable(driver.facts.driverID()) + ", process " +
                std::to_string(driver.facts.pid) + ": " +
                base::printable(driverTrouble.empty() ? stateInWords(driver.facts.state) : driverTrouble) +
                "\n";
        text += processText(driver, "    ", m_hasStacks);
    }
    return text;
}

std::string DoctorReport::processText(const HostSurvey::Process& process, const std::string& indent,
                                      bool hasStacks) const {
    const ProcessFacts& facts = process.facts;
    std::string command;
    for (const std::string& word : facts.command)
        command += (command.empty() ? "" : " ") + word;
    std::string text =
        indented("command    " + command + "\nin         " + facts.directory + "\nsince      " +
                     base::ageText(facts.age) + ", user " + std::to_string(facts.user) + ", " +
                     std::to_string(facts.memoryKb / 1024) + " MB, " + std::to_string(facts.descriptors) +
                     " descriptors",
                 indent);
    for (const std::string& queue : facts.queues)
        text += indented("queue      " + queue, indent);
    for (const std::string& ring : facts.rings)
        text += indented("recording  " + ring, indent);
    base::Table table({"thread", "name", "state", "waits in", "processor"});
    for (std::size_t i = 0; i < facts.threads.size(); ++i) {
        const ProcessFacts::Thread& thread = facts.threads[i];
        table.addRow({std::to_string(thread.id), thread.name, stateInWords(thread.state),
                      thread.waitsIn.empty() ? "-" : thread.waitsIn,
                      i < process.load.size() ? std::to_string(process.load[i]) + " %" : "-"});
    }
    std::ostringstream lines;
    if (!table.empty())
        table.print(lines);
    text += indented(lines.str(), indent);
    if (hasStacks)
        text += indented("stacks\n" + stacksOf(facts), indent);
    return text;
}

std::string DoctorReport::leftText() const {
    std::string text;
    for (const HostSurvey::Process& orphan : m_survey.orphans) {
        text += base::printable("left: driver " + orphan.facts.driverID() + ", process " +
                                std::to_string(orphan.facts.pid) +
                                ", whose parent is no host that is seen here") +
                "\n";
        text += processText(orphan, "  ", m_hasStacks);
    }
    for (const HostSurvey::Socket& socket : m_survey.deadSockets) {
        const bool isListening = socket.pid != 0;
        text += base::printable((isListening ? "other: socket " : "left: socket ") + socket.path +
                                (isListening ? ", at which process " + std::to_string(socket.pid) + " listens"
                                             : ", at which nobody listens") +
                                (socket.silence.empty() ? "" : " (" + socket.silence + ")")) +
                "\n";
    }
    for (const HostSurvey::QueueDirectory& directory : m_survey.queueDirectories) {
        text += !directory.isSeen  ? "queues, not to be seen from here: "
                : directory.isHeld ? "queues: "
                                   : "queues, and no host has their lock: ";
        text += base::printable(directory.path) + "\n";
        text += filesText("  ", directory.files) + filesText("  recording: ", directory.recording);
    }
    return text;
}

Json DoctorReport::json() const {
    Json hosts = Json::array();
    for (const HostSurvey::Host& host : m_survey.hosts) {
        Json each = jsonOf(host.process);
        each["answers"] = host.answers();
        each["sockets"] = jsonOf(host.sockets);
        each["drivers"] = jsonOf(host.drivers);
        hosts.push_back(std::move(each));
    }
    Json directories = Json::array();
    for (const HostSurvey::QueueDirectory& directory : m_survey.queueDirectories) {
        directories.push_back({{"path", directory.path},
                               {"seen", directory.isSeen},
                               {"held", directory.isHeld},
                               {"files", jsonOf(directory.files)},
                               {"recording", jsonOf(directory.recording)}});
    }
    return {{"well", m_survey.isWell()},
            {"hosts", hosts},
            {"left", jsonOf(m_survey.orphans)},
            {"sockets", jsonOf(m_survey.deadSockets)},
            {"queueDirectories", directories}};
}
