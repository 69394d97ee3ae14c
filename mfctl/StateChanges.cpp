#include "StateChanges.h"

#include <chrono>
#include <set>

#include "Printable.h"
#include "TimeText.h"

std::vector<std::string> StateChanges::take(const JsonView& answer) {
    std::vector<std::string> lines;
    const std::string time = base::timeOfDayText(std::chrono::system_clock::now()) + " ";
    const auto unset = [&](const std::string& key) {
        if (m_shown.erase(key) > 0)
            lines.push_back(time + base::printable(key) + " unset");
    };

    std::set<std::string> present;
    for (const JsonView& value : answer.list("values")) {
        const std::string key = value.text("key");
        std::string text = key + " = " + value.text(value.has("text") ? "text" : "value");
        if (value.has("stale"))
            text += "  (stale: " + value.member("stale").text("cause") + ")";
        present.insert(key);
        std::string& shown = m_shown[key];
        if (shown == text)
            continue;
        shown = text;
        lines.push_back(time + base::printable(text));
    }
    for (const JsonView& key : answer.list("unset"))
        unset(key.text());
    if (!answer.flag("complete"))
        return lines;
    std::vector<std::string> gone;
    for (const auto& [key, text] : m_shown) {
        if (!present.contains(key))
            gone.push_back(key);
    }
    for (const std::string& key : gone)
        unset(key);
    return lines;
}
