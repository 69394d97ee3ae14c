#include "DoctorCommand.h"

#include <fstream>
#include <sstream>

#include "ApiClient.h"
#include "ControlError.h"
#include "DoctorReport.h"
#include "Printable.h"
#include "Redaction.h"
#include "RegularFile.h"

namespace {

struct Question {
    const char* name;
    const char* target;
    const char* what;
};

constexpr Question s_questions[] = {
    {"host", "", "what the host is"},
    {"health", "/health", "whether it is well"},
    {"drivers", "/drivers", "its drivers and how they are"},
    {"queues", "/queues", "its queues"},
    {"state", "/state", "its state values"},
    {"events", "/events", "the last events"},
    {"log", "/log?lines=1000", "the last lines of its log"},
    {"history", "/history", "what was applied, when and by whom"},
    {"sessions", "/sessions", "who is connected"},
};
constexpr std::chrono::milliseconds s_patience{5'000};

std::string kernelFile(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string commandText(const ProcessFacts& facts) {
    std::string text;
    for (const std::string& word : Redaction::command(facts.command))
        text += word + "\n";
    for (const auto& [name, value] : facts.settings)
        text += name + "=" + value + "\n";
    return text;
}

void addProcess(SupportBundle& bundle, const ProcessFacts& facts, const std::string& proc) {
    const std::string pid = std::to_string(facts.pid);
    const std::string who = facts.driverID().empty() ? "mfhost " + pid : "driver " + facts.driverID();
    bundle.add(pid + "-command.txt", commandText(facts), "command line and MFD_* settings of " + who);
    for (const char* pName : {"status", "limits", "maps"})
        bundle.add(pid + "-" + pName + ".txt", kernelFile(proc + "/" + pid + "/" + pName),
                   std::string("the kernel's \"") + pName + "\" of " + who);
}

void addAnswers(SupportBundle& bundle, const HostSurvey::Host& host) {
    const std::string pid = std::to_string(host.process.facts.pid);
    for (const HostSurvey::Socket& socket : host.sockets) {
        if (socket.answer.empty())
            continue;
        ApiClient client(socket.path);
        try {
            for (const Question& question : s_questions)
                bundle.addJson(pid + "-" + question.name + ".json",
                               client.get(question.target, s_patience).body, question.what);
        } catch (const ControlError& error) {
            bundle.add(pid + "-silence.txt", std::string(error.what()) + "\n", "why no more was answered");
        }
        const nlohmann::json answer = nlohmann::json::parse(socket.answer, nullptr, false);
        const std::string workplace = JsonView(answer).text("workplace");
        if (const auto file = base::RegularFile::read(workplace); file)
            bundle.add(pid + "-workplace.xml", file.bytes, "the workplace file " + workplace);
        return;
    }
}

}  // namespace

EExit DoctorCommand::run(const Choice& choice) {
    const HostSurvey survey = HostSurvey::take(m_settings);
    const DoctorReport report(survey, choice.hasStacks);
    if (choice.asJson)
        m_screen.out << report.json().dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)
                     << std::endl;
    else
        m_screen.out << report.text() << std::flush;
    if (!choice.bundle.empty()) {
        if (const EExit exit = writeBundle(survey, choice.bundle); exit != EExit::Done)
            return exit;
    }
    if (!survey.isWell())
        return EExit::Failed;
    return survey.hosts.empty() ? EExit::NoHost : EExit::Done;
}

SupportBundle DoctorCommand::bundleOf(const HostSurvey& survey, const std::string& proc) {
    SupportBundle bundle;
    // Command lines are redacted word by word, which the text alone does not show.
    HostSurvey shown = survey;
    const auto redact = [](std::vector<HostSurvey::Process>& processes) {
        for (HostSurvey::Process& process : processes)
            process.facts.command = Redaction::command(process.facts.command);
    };
    redact(shown.orphans);
    for (HostSurvey::Host& host : shown.hosts) {
        host.process.facts.command = Redaction::command(host.process.facts.command);
        redact(host.drivers);
    }
    for (const char* pName : {"version", "loadavg", "meminfo", "locks"})
        bundle.add(std::string("machine-") + pName + ".txt", kernelFile(proc + "/" + pName),
                   std::string("the kernel's \"") + pName + "\"");
    for (const HostSurvey::Host& host : survey.hosts) {
        addProcess(bundle, host.process.facts, proc);
        for (const HostSurvey::Process& driver : host.drivers)
            addProcess(bundle, driver.facts, proc);
        addAnswers(bundle, host);
    }
    for (const HostSurvey::Process& orphan : survey.orphans)
        addProcess(bundle, orphan.facts, proc);
    // Reading stacks takes its time; what is to be known of processes is read before.
    bundle.add("report.txt", DoctorReport(shown, true).text(), "what mfctl doctor says, with all stacks");
    bundle.addJson(
        "report.json",
        DoctorReport(shown, false).json().dump(-1, ' ', false, nlohmann::json::error_handler_t::replace),
        "the same for programs");
    return bundle;
}

EExit DoctorCommand::writeBundle(const HostSurvey& survey, const std::string& path) const {
    const SupportBundle bundle = bundleOf(survey, m_settings.proc);
    if (const std::string error = bundle.write(path); !error.empty()) {
        m_screen.complain(error);
        return EExit::Failed;
    }
    // Beside JSON, standard output holds nothing else.
    std::ostream& list = m_screen.err;
    list << base::printable(path) << " holds:\n";
    for (const SupportBundle::Part& part : bundle.parts())
        list << "  "
             << base::printable(part.name + ", " + std::to_string(part.text.size()) + " bytes: " + part.what)
             << "\n";
    list << "Left out: values whose names look secret (password, token, pin, key and the like), passwords in "
            "addresses,\n"
            "private keys, and all files but the workplace's. A secret under a harmless name is still in it: "
            "look "
            "before you send it."
         << std::endl;
    return EExit::Done;
}
