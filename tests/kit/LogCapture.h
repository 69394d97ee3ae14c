#pragma once

#include <memory>
#include <string>

#include "StandardErrorCapture.h"
#include "sal/LogManager.h"

/// A log of the test's own, and what it writes to standard error.
class LogCapture {
public:
    explicit LogCapture(const sal::LogManager::Settings& settings = {})
        : m_pManager(std::make_unique<sal::LogManager>(settings)) {}

    sal::LogManager& manager() { return *m_pManager; }

    /// What was logged before this call.
    std::string text() {
        m_pManager->flush();
        return m_capture.text();
    }

    /// All that was logged; the log is gone then.
    std::string finish() {
        m_pManager.reset();
        return m_capture.finish();
    }

private:
    StandardErrorCapture m_capture;  // outlives the log, which writes until its end
    std::unique_ptr<sal::LogManager> m_pManager;
};
