#pragma once

#include <functional>
#include <mutex>
#include <string>

/// Says for the journal which driver a line of the host's log is about. Made by main before the log, which
/// shares it and asks on its own thread; Host says which drivers there are, while it lives.
class LineOwner {
public:
    using IsDriver = std::function<bool(const std::string& driverID)>;

    /// From when it returns the former one is not called any more. Any thread but the log's.
    void setDrivers(IsDriver isDriver);

    /// The driver that the output is named after, whose process has written the line ("SYS MFD"), or with
    /// whose ID the line begins ("SYS: process 17 ended"); empty where there is none. Any thread.
    std::string driverOf(const std::string& output, const std::string& text) const;

private:
    mutable std::mutex m_mutex;
    IsDriver m_isDriver;
};
