#include "SendCommand.h"

#include <cstdio>

#include "ControlError.h"
#include "Printable.h"

namespace {

/// As a shell takes it for one word.
std::string shellWord(const std::string& text) {
    std::string word = "'";
    for (const char c : text)
        word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}

/// A parameter whose value a blank has cut in two.
std::string joined(const std::string& parameter, const std::string& rest) {
    const std::size_t equals = parameter.find('=');
    return parameter.substr(0, equals + 1) + shellWord(parameter.substr(equals + 1) + " " + rest);
}

[[noreturn]] void refuse(const std::vector<std::string>& words, std::size_t index) {
    const std::string& word = words[index];
    std::string text = base::quoted(word) + " is no NAME=VALUE, nothing was sent";
    if (word.starts_with('='))
        text += "; the name before the \"=\" is missing";
    else if (index > 0)
        text += "; if it belongs to the word before it, quote both: " + joined(words[index - 1], word);
    else
        text += "; name the parameter, as in NAME=" + shellWord(word);
    throw ControlError(EExit::WrongUsage, text);
}

std::string durationText(std::int64_t microseconds) {
    if (microseconds < 1000)
        return std::to_string(microseconds) + " us";
    char text[48];
    const double milliseconds = static_cast<double>(microseconds) / 1000;
    if (milliseconds < 1000)
        std::snprintf(text, sizeof text, "%.1f ms", milliseconds);
    else
        std::snprintf(text, sizeof text, "%.1f s", milliseconds / 1000);
    return text;
}

}  // namespace

ApiClient::Json SendCommand::parameters(const std::vector<std::string>& words) {
    ApiClient::Json list = ApiClient::Json::array();
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::size_t equals = words[i].find('=');
        if (equals == std::string::npos || equals == 0)
            refuse(words, i);
        // Braces alone would make an object of two texts.
        list.push_back(ApiClient::Json::array({words[i].substr(0, equals), words[i].substr(equals + 1)}));
    }
    return list;
}

EExit SendCommand::run(const std::string& fid, const std::vector<std::string>& words,
                       const std::string& stage, ApiClient::Milliseconds limit) {
    const ApiClient::Reply reply =
        m_control.act("/fid", {{"fid", fid}, {"parameters", parameters(words)}, {"wait", stage}}, limit, fid);
    const JsonView outcome = reply.view();
    const bool isDenied = outcome.has("result") && !outcome.flag("result");
    if (!m_control.asJson()) {
        const std::string driver = outcome.text("driver");
        std::string text = fid + " " + outcome.text("stage");
        if (!driver.empty())
            text += " (" + driver + ", " + durationText(outcome.number("tookUs")) + ")";
        if (outcome.has("result"))
            text += isDenied ? "; the driver answered false" : "; the driver answered true";
        m_control.screen().out << base::printable(text) << std::endl;
    }
    return isDenied ? EExit::Failed : EExit::Done;
}
