#include "mfd/Driver.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <utility>

#include "EventLoop.h"
#include "Failure.h"
#include "Printable.h"
#include "TestTime.h"
#include "Throttle.h"

namespace mfd {

namespace {

/// How long the FIDs that have come before the stop may take.
constexpr std::chrono::milliseconds s_lastWork{1000};

/// What one message holds beside its code: a length byte before each text, a count byte before the pairs.
constexpr std::size_t s_messageRoom = 1024 - 6;
constexpr std::size_t s_mostParameters = 255;

std::string fidFault(const std::string& fid, const FIDParameterList& parameters) {
    const auto dot = fid.find('.');
    if (dot == 0 || dot == std::string::npos || dot + 1 == fid.size())
        return "it is not a driver ID, \".\" and a function";
    if (fid.size() > s_longestText)
        return "it has " + std::to_string(fid.size()) + " bytes, at most 255 are possible";
    if (parameters.size() > s_mostParameters)
        return "it has " + std::to_string(parameters.size()) + " parameters, at most 255 are possible";
    std::size_t size = 1 + fid.size() + 1;
    for (const auto& [name, value] : parameters) {
        if (name.size() > s_longestText || value.size() > s_longestText)
            return "the parameter " + base::quoted(name) + " has " +
                   std::to_string(std::max(name.size(), value.size())) + " bytes, at most 255 are possible";
        size += 2 + name.size() + value.size();
    }
    if (size > s_messageRoom)
        return "it takes " + std::to_string(size) + " bytes, a message has room for " +
               std::to_string(s_messageRoom);
    return {};
}

}  // namespace

struct Driver::Parts {
    std::unique_ptr<EventLoop> pLoop;  ///< there while m_reports is open
    bool isTest = false;
    base::Throttle refusals;
};

Driver::Driver() : m_pParts(std::make_unique<Parts>()) {}

Driver::~Driver() = default;

void Driver::declare(Function function) {
    const std::string& name = function.name;
    if (name.empty() || name.size() > s_longestText || find(name))
        throw std::logic_error("the function \"" + name + "\" is declared twice, or is no name");
    m_functions.push_back(std::move(function));
}

void Driver::function(std::string name, std::vector<Parameter> parameters, Handler handler) {
    declare({std::move(name), std::move(parameters), std::move(handler), {}});
}

void Driver::function(std::string name, Work handler) {
    function(std::move(name), {}, [handler = std::move(handler)](const Arguments&) { handler(); });
}

void Driver::answer(std::string name, std::vector<Parameter> parameters, AnsweringHandler handler) {
    declare({std::move(name), std::move(parameters), {}, std::move(handler)});
}

void Driver::add(StateSlot& state) {
    for (const StateSlot* pOther : m_states) {
        if (pOther->id() == state.id())
            throw std::logic_error("the state \"" + state.id() + "\" is declared twice");
    }
    m_states.push_back(&state);
}

const Driver::Function* Driver::find(const std::string& name) const {
    for (const Function& function : m_functions) {
        if (function.name == name)
            return &function;
    }
    return nullptr;
}

std::string Driver::names() const {
    std::string names;
    for (const Function& function : m_functions)
        names += (names.empty() ? "" : ", ") + function.name;
    return names;
}

bool Driver::initializationCompleted() {
    deinitialize();
    if (!panelState()) {
        log(sal::LogOutput::eError, "not started, there is nowhere to report to");
        return false;
    }
    bool isStarted = false;
    const std::string fault = failureOf([&] { isStarted = begin(); });
    if (!fault.empty())
        log(sal::LogOutput::eError, "not started: " + fault);
    if (!isStarted)
        keepBack();
    return isStarted;
}

bool Driver::begin() {
    m_pParts->isTest = std::getenv(s_testTimeVariable) != nullptr;
    EventLoop::Settings settings;
    settings.driverID = configuration().driverID;
    settings.timeStandsStill = m_pParts->isTest;
    settings.onFailure = [this](const std::string& what, const std::string& reason) {
        log(sal::LogOutput::eError, what + " failed: " + reason);
    };
    m_pParts->pLoop = std::make_unique<EventLoop>(std::move(settings));
    m_reports.open();
    for (StateSlot* pState : m_states)
        pState->begin();
    if (!start())
        return false;
    m_pParts->pLoop->start();
    m_calls.open();
    return true;
}

bool Driver::deinitialize() {
    m_calls.close();
    if (!m_pParts->pLoop)
        return true;
    const std::size_t left = m_pParts->pLoop->stop(s_lastWork);
    if (left > 0)
        log(sal::LogOutput::eWarning,
            "stopped with " + std::to_string(left) + " pieces of work left undone, FIDs among them");
    const std::string fault = failureOf([this] { stop(); });
    if (!fault.empty())
        log(sal::LogOutput::eError, "its stop failed: " + fault);
    keepBack();
    return fault.empty();
}

void Driver::keepBack() {
    m_reports.close();
    m_pParts->pLoop.reset();
}

bool Driver::sendFID(const std::string& fid, const FIDParameterList& parameters) const {
    const auto pass = m_calls.enter();
    if (!pass)
        return false;
    if (m_pParts->isTest && fid == s_advanceFunction)
        return advance(parameters);
    const Function* pFunction = find(fid);
    if (!pFunction) {
        log(sal::LogOutput::eWarning, unknownFunctionText(fid, names()));
        return false;
    }
    return handle(*pFunction, parameters);
}

bool Driver::handle(const Function& function, const FIDParameterList& parameters) const {
    Arguments arguments;
    if (const std::string fault = arguments.fill(function.parameters, parameters); !fault.empty()) {
        log(sal::LogOutput::eWarning, function.name + " ignored, " + fault);
        return false;
    }
    if (function.answer)
        return tellAnswer(function, arguments);
    // Functions are declared in the constructor alone: the reference holds.
    if (m_pParts->pLoop->post(function.name,
                              [&function, arguments = std::move(arguments)] { function.handler(arguments); }))
        return true;
    if (m_pParts->refusals.passes())
        log(sal::LogOutput::eWarning,
            function.name +
                " ignored, the driver's thread has too much to do: it is sent faster than it works");
    return false;
}

bool Driver::tellAnswer(const Function& function, const Arguments& arguments) const {
    Answer answer = Answer::done();
    if (const std::string fault = failureOf([&] { answer = function.answer(arguments); }); !fault.empty())
        answer = Answer::failed(fault);
    if (answer.isDone())
        return true;
    const bool hasFailed = answer.hasFailed();
    log(hasFailed ? sal::LogOutput::eError : sal::LogOutput::eWarning,
        function.name + (hasFailed ? " failed, " : " ignored, ") + answer.reason());
    return false;
}

bool Driver::advance(const FIDParameterList& parameters) const {
    const long long time = std::atoll(parameters.value("ms").c_str());
    const std::string number = parameters.value("number");
    return m_pParts->pLoop->post(s_advanceFunction, [this, time, number] {
        m_pParts->pLoop->advance(Milliseconds(time));
        toPanel([&](IPanelState& panel) { panel.triggerEvent(s_advancedEvent, number); });
    });
}

bool Driver::toPanel(const std::function<void(IPanelState&)>& report) const {
    const auto pass = m_reports.enter();
    if (!pass)
        return false;
    report(*panelState());
    return true;
}

bool Driver::post(Work work) const {
    const auto pass = m_reports.enter();
    return pass && m_pParts->pLoop->post("posted work", std::move(work));
}

unsigned Driver::after(Milliseconds time, Work work) const {
    const auto pass = m_reports.enter();
    return pass ? m_pParts->pLoop->startTimer(time, std::nullopt, std::move(work)) : 0;
}

unsigned Driver::every(Milliseconds period, Work work) const {
    const auto pass = m_reports.enter();
    return pass ? m_pParts->pLoop->startTimer(period, period, std::move(work)) : 0;
}

void Driver::cancel(unsigned timer) const {
    if (const auto pass = m_reports.enter())
        m_pParts->pLoop->cancelTimer(timer);
}

std::string Driver::watch(int fd, Work work) const {
    const auto pass = m_reports.enter();
    return pass ? m_pParts->pLoop->watch(fd, std::move(work)) : "the driver does not run";
}

void Driver::unwatch(int fd) const {
    if (const auto pass = m_reports.enter())
        m_pParts->pLoop->unwatch(fd);
}

std::chrono::steady_clock::time_point Driver::now() const {
    const auto pass = m_reports.enter();
    return pass ? m_pParts->pLoop->now() : std::chrono::steady_clock::now();
}

bool Driver::sendToDriver(const std::string& fid, const FIDParameterList& parameters) const {
    const auto pass = m_reports.enter();
    std::string fault = fidFault(fid, parameters);
    if (!pass)
        fault = "the driver does not run";
    else if (fault.empty() && !MfdDriverBase::sendToDriver(fid, parameters))
        fault = "the host does not take it";
    if (fault.empty())
        return true;
    log(sal::LogOutput::eWarning, fid + " not sent, " + fault);
    return false;
}

}  // namespace mfd
