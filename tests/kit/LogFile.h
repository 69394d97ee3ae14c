#pragma once

#include <string>

#include "TemporaryDirectory.h"
#include "sal/LogManager.h"

/// The log of a test, on the highest level, and what stands in it.
class LogFile {
public:
    LogFile() : m_log({.level = sal::LogOutput::eTrace, .file = m_directory.path("log"), .tag = {}}) {}

    std::string text() {
        m_log.flush();
        return m_directory.read("log");
    }

private:
    TemporaryDirectory m_directory;
    sal::LogManager m_log;
};
