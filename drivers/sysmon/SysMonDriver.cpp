#include "SysMonDriver.h"

#include <charconv>
#include <chrono>
#include <iostream>
#include <limits>
#include <system_error>
#include <utility>

using mfd::Answer;
using mfd::Arguments;
using mfd::Parameter;

namespace {

/// The load must fall to this part of the threshold before it can raise the alarm again.
constexpr float s_rearmAt = 0.9F;

std::string decimal(float number) {
    char text[64];
    const auto [end, error] = std::to_chars(text, text + sizeof text, number, std::chars_format::fixed, 2);
    return error == std::errc() ? std::string(text, end) : std::string("huge");
}

}  // namespace

SysMonDriver::SysMonDriver(SystemProbe::Paths paths) : m_probe(std::move(paths)) {
    answer("FORWARD", {Parameter::further()},
           [this](const Arguments& arguments) { return forward(arguments); });
    function("INTERVAL", {Parameter::integer("ms", 50, 3600000)}, [this](const Arguments& arguments) {
        m_interval = arguments.integer("ms");
        measureFromNowOn();
    });
    // At once, in its place between what FORWARD has sent before and sends after it.
    answer("MARK", {Parameter::text("text").orElse("")}, [this](const Arguments& arguments) {
        m_mark.report(arguments.text("text"));
        return Answer::done();
    });
    function("REPORT", [this] { measure(true); });
    function("THRESHOLD",
             {Parameter::number("load", 0, std::numeric_limits<float>::max())
                  .described("a number from 0 (no alarm) up")},
             [this](const Arguments& arguments) {
                 m_threshold = static_cast<float>(arguments.number("load"));
                 m_armed = true;
                 measure();
             });
}

bool SysMonDriver::start() {
    m_hasMeasured = false;
    measureFromNowOn();
    return true;
}

void SysMonDriver::measureFromNowOn() {
    measure();
    cancel(m_timer);
    m_timer = every(std::chrono::milliseconds(m_interval.value().value()), [this] { measure(); });
}

void SysMonDriver::measure(bool everything) {
    // All of one moment, before any of it can be seen.
    const auto hostName = m_probe.hostName();
    const auto freeMemory = m_probe.freeMemory();
    const auto link = m_probe.link();
    const auto load = m_probe.load();
    if (everything) {
        m_interval.report();
        m_threshold.report();
    }
    show(m_hostName, hostName, everything);
    show(m_freeMemory, freeMemory, everything);
    show(m_link, link, everything);
    show(m_load, load, true);
    if (load)
        checkLoad(*load);
    m_hasMeasured = true;
}

template <class Type>
void SysMonDriver::show(mfd::State<Type>& state, const std::optional<Type>& value, bool again) {
    if (!value && (state.value() || !m_hasMeasured))
        log(sal::LogOutput::eWarning, state.id() + " cannot be read on this machine");
    if (again)
        state.report(value);
    else
        state.set(value);
}

void SysMonDriver::checkLoad(float load) {
    const float threshold = m_threshold.value().value();
    if (load <= threshold * s_rearmAt)
        m_armed = true;
    if (threshold <= 0 || load <= threshold || !m_armed)
        return;
    m_armed = false;
    FIDParameterList alarm;
    alarm.add("source", configuration().driverID);
    alarm.add("text", "load " + decimal(load) + " is above " + decimal(threshold));
    alarm.add("load", decimal(load));
    alarm.add("threshold", decimal(threshold));
    // The base's, which leaves it to the caller to say what was not sent.
    if (!MfdDriverBase::sendToDriver("PANEL.ALARM", alarm))
        log(sal::LogOutput::eError, "load " + decimal(load) + " is above " + decimal(threshold) +
                                        ", but the alarm could not be sent to the panel");
    m_loadHigh.trigger(decimal(load));
}

Answer SysMonDriver::forward(const Arguments& arguments) const {
    const std::string fid = arguments.all().value("fid");
    if (fid.find('.') == std::string::npos)
        return Answer::ignored("fid=\"" + fid + "\" is not a driver ID, \".\" and a function");
    // Only the first "fid" is ours: a further one belongs to the FID that is sent, so no chain is endless.
    FIDParameterList rest;
    bool taken = false;
    for (const auto& [name, value] : arguments.all()) {
        if (!taken && name == "fid")
            taken = true;
        else
            rest.add(name, value);
    }
    return MfdDriverBase::sendToDriver(fid, rest) ? Answer::done()
                                                  : Answer::failed(fid + " could not be sent");
}

bool SysMonDriver::showState() const {
    const auto load = m_load.value();
    const auto freeMemory = m_freeMemory.value();
    const auto link = m_link.value();
    const float threshold = m_threshold.value().value();
    std::cout << "load " << (load ? decimal(*load) : "unknown") << ", "
              << (freeMemory ? std::to_string(*freeMemory) + " MiB free" : "memory unknown") << ", host "
              << m_hostName.value().value_or("unknown") << ", link "
              << (!link   ? "unknown"
                  : *link ? "up"
                          : "down")
              << ", every " << m_interval.value().value() << " ms, alarm "
              << (threshold > 0 ? "above load " + decimal(threshold) : std::string("off")) << std::endl;
    return true;
}
