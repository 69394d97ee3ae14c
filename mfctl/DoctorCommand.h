#pragma once

#include <string>

#include "EExit.h"
#include "HostSurvey.h"
#include "Screen.h"
#include "SupportBundle.h"

/// mfctl doctor: what hosts and driver processes of this machine do or did, whether they answer or not. Main
/// thread.
class DoctorCommand {
public:
    struct Choice {
        bool asJson = false;
        bool hasStacks = false;
        std::string bundle = {};  ///< a file for support; empty: none
    };
    DoctorCommand(const Screen& screen, HostSurvey::Settings settings)
        : m_screen(screen), m_settings(std::move(settings)) {}

    /// Failed where something is not well, NoHost where there is neither a host nor anything left of one.
    EExit run(const Choice& choice);

    /// All that goes to support.
    static SupportBundle bundleOf(const HostSurvey& survey, const std::string& proc);

private:
    EExit writeBundle(const HostSurvey& survey, const std::string& path) const;

    const Screen m_screen;
    const HostSurvey::Settings m_settings;
};
