#include "LogText.h"

#include "LocalTime.h"
#include "Printable.h"

namespace {

/// As the host's own log has it.
std::string levelInWords(std::int64_t level) {
    static constexpr const char* s_words[] = {"critical", "error", "warning", "info", "trace"};
    return level >= 1 && level <= 5 ? s_words[level - 1] : "";
}

}  // namespace

std::string logText(const JsonView& line, const Screen& screen) {
    using EColour = base::Table::EColour;
    constexpr std::int64_t error = 2;
    constexpr std::int64_t warning = 3;
    const std::int64_t level = line.number("level");
    std::string text = localTimeOfDay(line.text("time"));
    const std::string driver = line.text("driver");
    const std::string output = line.text("output");
    // The output of a driver's process begins with its ID, and so does what the host says of it.
    const bool isNamed =
        output == driver || output.starts_with(driver + " ") || line.text("text").starts_with(driver + ":");
    for (const std::string& word : {levelInWords(level), output, isNamed ? std::string() : driver})
        text += (word.empty() ? "" : " ") + word;
    return screen.coloured(level > 0 && level <= error ? EColour::Bad
                           : level == warning          ? EColour::Warning
                                                       : EColour::None,
                           base::printable(text + "  " + line.text("text")));
}

void printLines(const std::string& text, const Screen& screen) {
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = text.find('\n', begin);
        const std::size_t size = end == std::string::npos ? std::string::npos : end - begin;
        std::string line = text.substr(begin, size);
        if (line.ends_with('\r'))
            line.pop_back();
        screen.out << base::printable(line) << "\n";
        begin = end == std::string::npos ? text.size() : end + 1;
    }
    screen.out << std::flush;
}
