#include "mfd/Settings.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "Failure.h"
#include "FileReplacement.h"
#include "NumberText.h"
#include "Printable.h"
#include "RegularFile.h"

namespace mfd {

namespace {

constexpr const char* s_head = "mfd-settings ";
constexpr const char* s_end = "end";

/// One line for each value, whatever is in it.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char letter : text) {
        if (letter == '\\')
            result += "\\\\";
        else if (letter == '\n')
            result += "\\n";
        else
            result += letter;
    }
    return result;
}

std::string unescaped(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size())
            result += text[++i] == 'n' ? '\n' : text[i];
        else
            result += text[i];
    }
    return result;
}

}  // namespace

Settings::Settings(int version, Migration migration) : m_version(version), m_migration(std::move(migration)) {
    if (version < 1)
        throw std::logic_error("the version of settings is 1 or more");
}

std::string Settings::load(const std::string& directory) {
    const std::string path = directory + "/settings.txt";
    m_values.clear();
    m_path.clear();
    const base::RegularFile file = base::RegularFile::read(path);
    if (!file && file.reason != std::strerror(ENOENT))
        return path + " cannot be read: " + file.reason + "; nothing is remembered, and it is not written";
    m_path = path;
    if (!file)
        return {};

    int version = 0;
    Values values;
    if (const std::string fault = parse(file.bytes, version, values); !fault.empty())
        return setAside("broken", fault);
    if (version > m_version)
        return setAside("version" + std::to_string(version), "it is of version " + std::to_string(version) +
                                                                 ", this driver's is " +
                                                                 std::to_string(m_version));
    if (version < m_version && m_migration) {
        if (const std::string fault = failureOf([&] { m_migration(version, values); }); !fault.empty())
            return setAside("broken", "what is of version " + std::to_string(version) +
                                          " does not become version " + std::to_string(m_version) + ": " +
                                          fault);
    }
    m_values = std::move(values);
    return version < m_version ? save() : std::string();
}

std::string Settings::parse(const std::string& bytes, int& version, Values& values) const {
    std::istringstream lines(bytes);
    std::string line;
    const std::size_t headLength = std::strlen(s_head);
    std::getline(lines, line);
    const auto number = line.starts_with(s_head) ? numberIn<int>(line.substr(headLength)) : std::nullopt;
    if (!number || *number < 1)
        return "line 1: " + base::quoted(line) + " is not \"mfd-settings\" and a version";
    version = *number;
    for (int count = 2; std::getline(lines, line); ++count) {
        if (line == s_end)
            return {};
        const auto equals = line.find('=');
        if (equals == 0 || equals == std::string::npos)
            return "line " + std::to_string(count) + ": " + base::quoted(line) + " is not NAME=VALUE";
        values[unescaped(line.substr(0, equals))] = unescaped(line.substr(equals + 1));
    }
    return "its last line is not \"end\": it is cut off";
}

std::string Settings::setAside(const std::string& ending, const std::string& why) {
    const std::string place = m_path + "." + ending;
    if (std::rename(m_path.c_str(), place.c_str()) == 0)
        return m_path + ": " + why + "; it is kept as settings.txt." + ending + ", and nothing is remembered";
    const std::string reason = std::strerror(errno);
    const std::string path = std::exchange(m_path, std::string());
    return path + ": " + why + "; it cannot be renamed (" + reason +
           "), so nothing is remembered, and it is not written";
}

std::string Settings::save() const {
    if (m_path.empty())
        return "settings not saved: they were not loaded";
    std::string bytes = s_head + std::to_string(m_version) + "\n";
    for (const auto& [name, value] : m_values)
        bytes += escaped(name) + "=" + escaped(value) + "\n";
    const std::string reason = base::replaceFile(m_path, bytes + s_end + "\n");
    return reason.empty() ? reason : m_path + " not saved: " + reason;
}

std::string Settings::text(const std::string& name, const std::string& fallback) const {
    const auto found = m_values.find(name);
    return found == m_values.end() ? fallback : found->second;
}

int Settings::integer(const std::string& name, int fallback) const {
    return numberIn<int>(text(name)).value_or(fallback);
}

double Settings::number(const std::string& name, double fallback) const {
    return numberIn<double>(text(name)).value_or(fallback);
}

bool Settings::boolean(const std::string& name, bool fallback) const {
    const std::string value = text(name);
    return value == "true" || (value != "false" && fallback);
}

void Settings::set(const std::string& name, const std::string& value) {
    if (name.empty() || name.size() > 255 || name.find_first_of("=\n") != std::string::npos)
        throw std::logic_error(base::quoted(name) + " is no name of a setting: 1 to 255 bytes without \"=\"");
    m_values[name] = value;
}

void Settings::set(const std::string& name, int value) {
    set(name, numberText(value));
}

void Settings::set(const std::string& name, double value) {
    set(name, numberText(value));
}

void Settings::set(const std::string& name, bool value) {
    set(name, std::string(value ? "true" : "false"));
}

void Settings::remove(const std::string& name) {
    m_values.erase(name);
}

}  // namespace mfd
