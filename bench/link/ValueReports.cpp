#include "ValueReports.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "Files.h"
#include "JobLength.h"
#include "PanelTarget.h"
#include "Patience.h"

namespace fs = std::filesystem;

ValueReports::ValueReports(fs::path directory, Ask ask)
    : m_directory(std::move(directory)), m_ask(std::move(ask)) {}

ValueReports::Times ValueReports::report(int drivers, std::uint64_t each) const {
    for (int driver = 0; driver < drivers; ++driver)
        fs::remove(file(driver));
    for (int driver = 0; driver < drivers; ++driver)
        m_ask(driver, std::to_string(each), file(driver));
    Times all{INT64_MAX, 0};
    for (int driver = 0; driver < drivers; ++driver) {
        const Times its = wait(driver);
        all.begin = std::min(all.begin, its.begin);
        all.end = std::max(all.end, its.end);
    }
    return all;
}

void ValueReports::measure(int drivers, double seconds, const Results& results, const std::string& panel,
                           int round) const {
    const auto count = static_cast<std::uint64_t>(drivers);
    for (JobLength length(seconds, count);;) {
        const double taken = report(drivers, length.count() / count).seconds();
        if (!length.isEnough(taken))
            continue;
        results.add("values", panel, round,
                    {{"drivers", drivers},
                     {"rate", static_cast<double>(length.count()) / taken},
                     {"seconds", taken}});
        return;
    }
}

fs::path ValueReports::file(int driver) const {
    return m_directory / ("report." + PanelTarget::driverID(static_cast<std::size_t>(driver)));
}

ValueReports::Times ValueReports::wait(int driver) const {
    waitUntil(file(driver), [&] { return fs::exists(file(driver)); });
    const std::string bytes = textOf(file(driver));
    Times times;
    if (bytes.size() != sizeof times)
        throw std::runtime_error(file(driver).string() + " cannot be read");
    std::memcpy(&times, bytes.data(), sizeof times);
    return times;
}
