#pragma once

#include <stdexcept>
#include <string>

#include "EExit.h"

/// Why a command of mfctl cannot go on: the text for standard error and the exit code. Thrown by what talks
/// to the host, caught by runControlLine and by commands that wait for a host to come back.
class ControlError : public std::runtime_error {
public:
    ControlError(EExit code, const std::string& text) : std::runtime_error(text), m_exit(code) {}

    EExit exit() const { return m_exit; }

private:
    EExit m_exit;
};
