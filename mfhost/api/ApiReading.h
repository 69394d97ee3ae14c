#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ApiCall.h"
#include "ApiContext.h"
#include "ApiFault.h"
#include "ApiTarget.h"
#include "RecordedPast.h"

class JsonText;

/// Answers what only asks: each operation gives one resource as JSON. Owned by ApiHandler; called on the
/// API's thread, and on the command thread where its operation says so. An ApiFault says why there is none.
class ApiReading {
public:
    /// Of /log, where none is asked for, and at most.
    static constexpr std::size_t s_usualLines = 100;
    static constexpr std::size_t s_mostLines = 10000;
    /// Bytes of a pattern.
    static constexpr std::size_t s_longestGlob = 256;

    explicit ApiReading(const ApiContext& context) : m_context(context) {}

    std::string host(const ApiCaller& caller) const;
    std::string health() const;
    std::string drivers() const;
    std::string driver(const std::string& driverID) const;
    std::string state(const ApiTarget& target) const;
    std::string events() const;
    std::string alarms() const;
    std::string controls() const;
    std::string queues() const;
    std::string macros() const;
    std::string links() const;
    std::string completion(const ApiTarget& target) const;
    std::string catalogue() const;
    std::string modules() const;
    std::string log(const ApiTarget& target) const;
    std::string sessions() const;
    /// Both on the thread that reads what was recorded.
    std::string runs(const std::string& driverID, const ApiTarget& target) const;
    std::string stateHistory(const std::string& key, const ApiTarget& target) const;
    /// Not as JSON: MetricsText::s_contentType.
    std::string metrics() const;
    /// Command thread, as the next.
    std::string history() const;
    std::string historyEntry(unsigned number) const;

    /// A value as /state shows it. Any thread.
    void addValue(JsonText& json, const StateStore::Entry& entry, ApiContext::Clock::time_point now) const;
    struct DriverText {
        std::string id;
        std::string json;      ///< as /drivers shows it
        std::string constant;  ///< of it, what does not change by itself as time goes by
    };
    /// Those of all drivers, as far as ends have been looked for. Any thread.
    std::vector<DriverText> driverTexts() const;
    /// The alarms as /alarms shows them, without what is round the array; and what of it does not change by
    /// itself. Any thread.
    struct AlarmsText {
        std::string json;
        std::string constant;
    };
    AlarmsText alarmsText() const;
    /// Who is at the controls, as /controls shows it; null for nobody. Any thread.
    std::string controlsText() const;
    /// The member "driver" as /drivers shows it; none for an unknown one. Any thread.
    void addDriver(JsonText& json, const std::string& driverID) const;
    /// The IDs of all drivers. Any thread.
    std::vector<std::string> driverIDs() const;
    /// That there is no such driver, with the nearest ones. Any thread.
    ApiFault unknownDriver(const std::string& driverID) const;

private:
    /// What is recorded of that span to take; its holes. An ApiFault says that the host stops.
    std::vector<RecordedPast::Hole> readPast(const RecordedPast::Span& span,
                                             const RecordedPast::Take& take) const;

    using Queues = std::map<std::string, sal::MessageQueue::Status>;

    Queues queuesByName() const;
    std::map<std::string, std::uint64_t> losses() const;
    void writeDriver(JsonText& json, const DriverTable::Driver& driver, const Queues& queues,
                     std::uint64_t lost) const;

    const ApiContext& m_context;
};
