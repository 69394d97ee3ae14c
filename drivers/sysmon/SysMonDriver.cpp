#include "SysMonDriver.h"

#include <charconv>
#include <cmath>
#include <iostream>
#include <system_error>
#include <utility>

#include "ThreadName.h"

namespace {

constexpr int s_minInterval = 50;
constexpr int s_maxInterval = 3600000;
constexpr std::size_t s_maxText = 255;
/// The load must fall to this part of the threshold before it can raise the alarm again.
constexpr float s_rearmAt = 0.9F;

template <class Number>
std::optional<Number> parsed(const std::string& text) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

std::string decimal(float number) {
    char text[64];
    const auto [end, error] = std::to_chars(text, text + sizeof text, number, std::chars_format::fixed, 2);
    return error == std::errc() ? std::string(text, end) : std::string("huge");
}

}  // namespace

SysMonDriver::SysMonDriver(SystemProbe::Paths paths) : m_probe(std::move(paths)) {}

SysMonDriver::~SysMonDriver() {
    stop();
}

bool SysMonDriver::initializationCompleted() {
    if (!panelState()) {
        log(sal::LogOutput::eError, "not started, there is nowhere to report to");
        return false;
    }
    stop();
    m_stopping = false;
    m_reported.reset();
    m_gate.open();
    try {
        m_thread = std::thread(&SysMonDriver::run, this);
    } catch (const std::system_error& error) {
        m_gate.close();
        log(sal::LogOutput::eError, std::string("not started, no thread: ") + error.what());
        return false;
    }
    return true;
}

bool SysMonDriver::deinitialize() {
    stop();
    return true;
}

void SysMonDriver::stop() {
    m_gate.close();
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
        m_wakeUp.notify_all();
    }
    if (m_thread.joinable())
        m_thread.join();
}

bool SysMonDriver::sendFID(const std::string& fid, const FIDParameterList& parameters) const {
    static const mfd::FunctionTable<SysMonDriver>::Function s_functions[] = {
        {"FORWARD", &SysMonDriver::forward},
        {"INTERVAL", &SysMonDriver::setInterval},
        {"MARK", &SysMonDriver::mark},
        {"REPORT", &SysMonDriver::requestReport},
        {"THRESHOLD", &SysMonDriver::setThreshold},
    };
    const auto pass = m_gate.enter();
    return pass && callFunction<SysMonDriver>(s_functions, fid, parameters);
}

bool SysMonDriver::showState() const {
    const auto pass = m_gate.enter();
    if (!pass)
        return false;
    Sample sample;
    Settings settings;
    {
        std::lock_guard lock(m_mutex);
        sample = m_lastSample;
        settings = m_settings;
    }
    std::cout << "load " << (sample.load ? decimal(*sample.load) : "unknown") << ", "
              << (sample.freeMemory ? std::to_string(*sample.freeMemory) + " MiB free" : "memory unknown")
              << ", host " << sample.hostName.value_or("unknown") << ", link "
              << (!sample.link   ? "unknown"
                  : *sample.link ? "up"
                                 : "down")
              << ", every " << settings.interval << " ms, alarm "
              << (settings.threshold > 0 ? "above load " + decimal(settings.threshold) : std::string("off"))
              << std::endl;
    return true;
}

bool SysMonDriver::setInterval(const FIDParameterList& parameters) const {
    const std::string text = parameters.value("ms");
    const std::optional<int> interval = parsed<int>(text);
    if (!interval || *interval < s_minInterval || *interval > s_maxInterval) {
        log(sal::LogOutput::eWarning, "INTERVAL ignored, ms=\"" + text + "\" is not a whole number from " +
                                          std::to_string(s_minInterval) + " to " +
                                          std::to_string(s_maxInterval));
        return false;
    }
    std::lock_guard lock(m_mutex);
    m_settings.interval = *interval;
    m_wakeUp.notify_all();
    return true;
}

bool SysMonDriver::setThreshold(const FIDParameterList& parameters) const {
    const std::string text = parameters.value("load");
    const std::optional<float> threshold = parsed<float>(text);
    if (!threshold || !std::isfinite(*threshold) || *threshold < 0) {
        log(sal::LogOutput::eWarning,
            "THRESHOLD ignored, load=\"" + text + "\" is not a number from 0 (no alarm) up");
        return false;
    }
    std::lock_guard lock(m_mutex);
    m_settings.threshold = *threshold;
    m_armed = true;
    m_wakeUp.notify_all();
    return true;
}

bool SysMonDriver::requestReport(const FIDParameterList&) const {
    std::lock_guard lock(m_mutex);
    m_reportRequested = true;
    m_wakeUp.notify_all();
    return true;
}

bool SysMonDriver::forward(const FIDParameterList& parameters) const {
    const std::string fid = parameters.value("fid");
    if (fid.find('.') == std::string::npos) {
        log(sal::LogOutput::eWarning,
            "FORWARD ignored, fid=\"" + fid + "\" is not a driver ID, \".\" and a function");
        return false;
    }
    // Only the first "fid" is ours: a further one belongs to the FID that is sent, so no chain is endless.
    FIDParameterList rest;
    bool taken = false;
    for (const auto& [name, value] : parameters) {
        if (!taken && name == "fid")
            taken = true;
        else
            rest.add(name, value);
    }
    if (!sendToDriver(fid, rest)) {
        log(sal::LogOutput::eError, "FORWARD failed, " + fid + " could not be sent");
        return false;
    }
    return true;
}

bool SysMonDriver::mark(const FIDParameterList& parameters) const {
    panelState()->setStateValue("MARK", parameters.value("text").substr(0, s_maxText));
    return true;
}

void SysMonDriver::run() {
    base::nameThread(configuration().driverID, "measure");
    std::unique_lock lock(m_mutex);
    while (!m_stopping) {
        const Settings settings = m_settings;
        const bool everything = std::exchange(m_reportRequested, false);
        const auto next = std::chrono::steady_clock::now() + std::chrono::milliseconds(settings.interval);
        lock.unlock();
        const Sample sample{m_probe.load(), m_probe.freeMemory(), m_probe.hostName(), m_probe.link()};
        report(sample, settings, everything);
        lock.lock();
        m_lastSample = sample;
        m_wakeUp.wait_until(lock, next, [this, &settings] {
            return m_stopping || m_reportRequested || m_settings != settings;
        });
    }
}

void SysMonDriver::report(const Sample& sample, const Settings& settings, bool everything) {
    const bool all = everything || !m_reported;
    const Sample& old = m_reported ? *m_reported : Sample{};
    IPanelState& panel = *panelState();
    const auto unknown = [&](const std::string& stateID, bool was) {
        if (was || all)
            panel.unsetStateValue(stateID);
        if (was || !m_reported)
            log(sal::LogOutput::eWarning, stateID + " cannot be read on this machine");
    };

    if (all || settings.interval != m_reportedSettings.interval)
        panel.setStateValueInt("INTERVAL", settings.interval);
    if (all || settings.threshold != m_reportedSettings.threshold)
        panel.setStateValueFloat("THRESHOLD", settings.threshold);
    m_reportedSettings = settings;

    if (!sample.hostName)
        unknown("HOSTNAME", old.hostName.has_value());
    else if (all || sample.hostName != old.hostName)
        panel.setStateValue("HOSTNAME", *sample.hostName);
    if (!sample.freeMemory)
        unknown("MEMFREE", old.freeMemory.has_value());
    else if (all || sample.freeMemory != old.freeMemory)
        panel.setStateValueInt("MEMFREE", *sample.freeMemory);
    if (!sample.link)
        unknown("LINK", old.link.has_value());
    else if (all || sample.link != old.link)
        panel.setStateValueBool("LINK", *sample.link);
    if (!sample.load) {
        unknown("LOAD", old.load.has_value());
    } else {
        panel.setStateValueFloat("LOAD", *sample.load);
        checkLoad(*sample.load, settings.threshold);
    }
    m_reported = sample;
}

void SysMonDriver::checkLoad(float load, float threshold) {
    {
        std::lock_guard lock(m_mutex);
        // A threshold that was changed meanwhile is for the next sample, which comes at once.
        if (threshold <= 0 || threshold != m_settings.threshold)
            return;
        if (load <= threshold * s_rearmAt)
            m_armed = true;
        if (load <= threshold || !m_armed)
            return;
        m_armed = false;
    }
    FIDParameterList alarm;
    alarm.add("source", configuration().driverID);
    alarm.add("text", "load " + decimal(load) + " is above " + decimal(threshold));
    alarm.add("load", decimal(load));
    alarm.add("threshold", decimal(threshold));
    if (!sendToDriver("PANEL.ALARM", alarm))
        log(sal::LogOutput::eError, "load " + decimal(load) + " is above " + decimal(threshold) +
                                        ", but the alarm could not be sent to the panel");
    panelState()->triggerEvent("LOADHIGH", decimal(load));
}
