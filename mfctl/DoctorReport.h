#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "HostSurvey.h"

/// A survey as a person reads it, or a program. Main thread.
class DoctorReport {
public:
    /// hasStacks: with the stacks of all processes; without, of those hosts that do not answer. Reading
    /// stacks halts a process for some milliseconds; eu-stack does it, where it is installed.
    explicit DoctorReport(const HostSurvey& survey, bool hasStacks);

    /// Several lines, printable.
    std::string text() const;
    nlohmann::json json() const;

private:
    std::string hostText(const HostSurvey::Host& host) const;
    std::string processText(const HostSurvey::Process& process, const std::string& indent,
                            bool hasStacks) const;
    std::string leftText() const;

    const HostSurvey& m_survey;
    const bool m_hasStacks;
};
