#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "ProcessController.h"
#include "sal/LogManager.h"

/// What each process test has to itself: a queue directory, a record file for its driver, the streams of what
/// it starts.
class Workbench : public testing::Test {
protected:
    Workbench();
    ~Workbench() override;

    static std::string module(const std::string& name);

    /// Starts a program in a session of its own or, as from a shell, in this one; its streams go to files.
    /// Standard input is a pipe whose end is kept in inputFd.
    ProcessController start(const std::string& program, const std::vector<std::string>& arguments,
                            bool ownSession = true);
    void writeInput(const std::string& text) const;

    /// While it lives what this process and its children write to the standard streams goes to the files.
    class StreamsToFiles {
    public:
        explicit StreamsToFiles(const Workbench& bench);
        ~StreamsToFiles();
        StreamsToFiles(const StreamsToFiles&) = delete;
        StreamsToFiles& operator=(const StreamsToFiles&) = delete;

    private:
        int m_output;
        int m_error;
    };

    std::string standardOutput() const;
    std::vector<std::string> standardError() const;
    /// Lines of the driver's record so far.
    std::vector<std::string> record() const;
    /// Waits until the record has a line; false when it does not come in time.
    bool waitForRecord(const std::string& line) const;
    /// Waits until the process has its queues and its module.
    bool waitUntilItRuns() const;

    std::filesystem::path directory;

private:
    sal::LogManager m_log;
    int m_inputFd = -1;
};
