#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "ApiContext.h"
#include "ApiReading.h"
#include "ILiveSource.h"
#include "JoinedGaps.h"
#include "JsonText.h"

/// What the pages of the web panel are told, out of what the host has: values by the versions of the store,
/// drivers, alarms, who is at the controls, and what happened as records of the stream. Owned by HostApi; API
/// thread.
class LiveSource final : public ILiveSource {
public:
    /// Records that are kept for a page that opens, or comes late.
    static constexpr std::size_t s_keptRecords = 2000;
    /// Records that one look reads; what is left comes with the next one.
    static constexpr std::size_t s_recordsPerLook = 20000;
    /// After so long without a look no page was open, and it begins anew with the newest records.
    static constexpr std::chrono::seconds s_streamIdle{5};
    /// Drivers are looked at no more often: their rates and queues change all the time.
    static constexpr std::chrono::milliseconds s_driversEach{200};

    explicit LiveSource(const ApiContext& context) : m_context(context), m_reading(context) {}

    std::string host() const override;
    void look() override;
    LiveChanges changes(const LivePosition& since) const override;

private:
    struct Row {
        std::string json;      ///< empty for a driver that is no more
        std::string constant;  ///< of it, what does not change by itself
        std::uint64_t version = 0;
    };
    struct Record {
        std::uint64_t number = 0;
        std::string json;
    };

    void lookAtDrivers();
    void lookAtAlarms();
    void lookAtControls();
    void lookForRecords();
    void readStream();
    void openStream();
    void countPassedOver(std::uint64_t number);
    void addRecord(std::chrono::system_clock::time_point time, bool isEvent, const std::string& driver,
                   const std::string& name, int level, const std::string& text);
    void keep(std::string json);
    bool addValues(JsonText& json, const LivePosition& since, LiveChanges& found) const;
    bool addDrivers(JsonText& json, std::uint64_t since) const;
    bool addRecords(JsonText& json, std::uint64_t since) const;

    const ApiContext& m_context;
    const ApiReading m_reading;
    std::map<std::string, Row> m_drivers;
    std::uint64_t m_driversVersion = 0;
    std::optional<ApiContext::Clock::time_point> m_driversSeen;
    std::string m_alarms;          ///< the list, as JSON
    std::string m_alarmsConstant;  ///< of it, what does not change by itself
    std::uint64_t m_alarmsVersion = 0;
    std::string m_controls = "null";  ///< who is there, as JSON
    std::uint64_t m_controlsVersion = 0;
    std::deque<Record> m_records;
    std::uint64_t m_lastRecord = 0;  ///< its number, those that nobody saw included
    // Where the host records.
    std::unique_ptr<stream::JoinedGaps> m_pStream;
    std::uint64_t m_streamFrom = 0;  ///< no gap before this number is told
    std::uint64_t m_streamNext = 0;  ///< the first number that pages have not been told; 0: they have
    std::optional<ApiContext::Clock::time_point> m_streamRead;
    // Where it does not.
    std::uint64_t m_lastEvent = 0;  ///< the store's number of it
    std::uint64_t m_lastLine = 0;   ///< the log's
};
