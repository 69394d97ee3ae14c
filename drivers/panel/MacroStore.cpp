#include "MacroStore.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "RegularFile.h"
#include "UniqueFd.h"

namespace {

constexpr std::string_view s_extension = ".macro";
constexpr std::string_view s_head = "macro 1";
constexpr std::string_view s_end = "end";
constexpr std::int64_t s_maxOffset = 7 * 24 * 3600 * std::int64_t{1000};

std::string systemReason() {
    return std::system_category().message(errno);
}

std::string quoted(std::string_view text) {
    constexpr std::size_t longest = 60;
    return '"' + std::string(text.substr(0, longest)) + (text.size() > longest ? "..." : "") + '"';
}

bool isControl(char character) {
    return static_cast<unsigned char>(character) < ' ' || character == '\x7f';
}

template <class MustEncode>
std::string encode(std::string_view text, MustEncode mustEncode) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string encoded;
    for (const char character : text) {
        if (mustEncode(character)) {
            const auto byte = static_cast<unsigned char>(character);
            encoded += {'%', digits[byte >> 4], digits[byte & 15]};
        } else {
            encoded += character;
        }
    }
    return encoded;
}

std::optional<std::string> decode(std::string_view text) {
    std::string decoded;
    while (!text.empty()) {
        if (text.front() != '%') {
            decoded += text.front();
            text.remove_prefix(1);
            continue;
        }
        if (text.size() < 3)
            return std::nullopt;
        unsigned int byte = 0;
        const auto [end, error] = std::from_chars(text.data() + 1, text.data() + 3, byte, 16);
        if (error != std::errc() || end != text.data() + 3)
            return std::nullopt;
        decoded += static_cast<char>(byte);
        text.remove_prefix(3);
    }
    return decoded;
}

std::string encodeWord(std::string_view text) {
    return encode(text, [](char c) { return isControl(c) || c == ' ' || c == '%' || c == '='; });
}

/// Letters, digits and a few signs stand for themselves, so no name can leave the directory or hide in it.
std::string fileNameOf(std::string_view name) {
    std::string encoded = encode(name, [](char c) {
        return !((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                 c == '_' || c == '.');
    });
    if (encoded.starts_with('.'))
        encoded.replace(0, 1, "%2E");
    return encoded.append(s_extension);
}

std::optional<std::string> nameOf(std::string_view fileName) {
    fileName.remove_suffix(s_extension.size());
    std::optional<std::string> name = decode(fileName);
    // Another spelling of the same name would be a second file of it.
    if (!name || !MacroStore::isValidName(*name) ||
        fileNameOf(*name) != std::string(fileName).append(s_extension))
        return std::nullopt;
    return name;
}

std::string_view takeUntil(std::string_view& text, char separator) {
    const std::size_t length = std::min(text.find(separator), text.size());
    const std::string_view taken = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    return taken;
}

/// Appends the step of one line. Empty on success; else what is wrong with the line.
std::string parseStep(std::string_view line, MacroStore::Steps& steps) {
    const std::string_view offsetText = takeUntil(line, ' ');
    std::int64_t offset = -1;
    const auto [end, error] =
        std::from_chars(offsetText.data(), offsetText.data() + offsetText.size(), offset, 10);
    if (error != std::errc() || end != offsetText.data() + offsetText.size() || offset < 0 ||
        offset > s_maxOffset)
        return "expected a time from 0 to " + std::to_string(s_maxOffset) + " milliseconds, found " +
               quoted(offsetText);
    if (!steps.empty() && std::chrono::milliseconds(offset) < steps.back().offset)
        return "the time " + std::string(offsetText) + " lies before the one of the step above";

    const std::string_view fidText = takeUntil(line, ' ');
    std::optional<std::string> fid = decode(fidText);
    if (!fid || fid->find('.') == std::string::npos)
        return "expected a FID (driver ID, \".\", function), found " + quoted(fidText);

    MacroStep step{std::chrono::milliseconds(offset), std::move(*fid), {}};
    while (!line.empty()) {
        std::string_view parameter = takeUntil(line, ' ');
        const std::string_view whole = parameter;
        if (parameter.find('=') == std::string_view::npos)
            return "expected a parameter name=value, found " + quoted(whole);
        const std::optional<std::string> name = decode(takeUntil(parameter, '='));
        const std::optional<std::string> value = decode(parameter);
        if (!name || !value)
            return "\"%\" must stand before two hexadecimal digits, found " + quoted(whole);
        step.parameters.add(*name, *value);
    }
    steps.push_back(std::move(step));
    return {};
}

std::string toText(const MacroStore::Steps& steps) {
    std::string text(s_head);
    text += '\n';
    for (const MacroStep& step : steps) {
        text += std::to_string(step.offset.count()) + ' ' + encodeWord(step.fid);
        for (const auto& [name, value] : step.parameters)
            text += ' ' + encodeWord(name) + '=' + encodeWord(value);
        text += '\n';
    }
    return text.append(s_end).append("\n");
}

}  // namespace

MacroStore::MacroStore(std::string directory, Report report)
    : m_directory(std::move(directory)), m_report(std::move(report)) {}

bool MacroStore::isValidName(std::string_view name) {
    // Encoded, 80 bytes still make a file name that every file system takes.
    return !name.empty() && name.size() <= 80 && std::none_of(name.begin(), name.end(), isControl);
}

std::string MacroStore::pathOf(const std::string& fileName) const {
    return m_directory + '/' + fileName;
}

std::optional<std::map<std::string, MacroStore::Steps>> MacroStore::readAll() const {
    std::map<std::string, Steps> macros;
    std::error_code error;
    std::filesystem::directory_iterator entry(m_directory, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string fileName = entry->path().filename().string();
        if (!fileName.ends_with(s_extension))
            continue;
        const std::optional<std::string> name = nameOf(fileName);
        if (!name)
            m_report(
                pathOf(fileName) +
                ": left out, no macro name; letters, digits, \"-\", \"_\" and \".\" stand for themselves, "
                "every other byte is %XX");
        else if (std::optional<Steps> steps = readFile(pathOf(fileName)))
            macros.emplace(*name, std::move(*steps));
    }
    if (error) {
        m_report("cannot read the macro directory \"" + m_directory + "\": " + error.message());
        return std::nullopt;
    }
    return macros;
}

std::optional<MacroStore::Steps> MacroStore::readFile(const std::string& path) const {
    using EFault = base::RegularFile::EFault;
    const base::RegularFile file = base::RegularFile::read(path);
    if (!file) {
        const bool isOther = file.fault == EFault::NotRegular || file.fault == EFault::TooLarge;
        m_report(path + ": left out, " +
                 (isOther ? "a macro is a regular file of at most 16 MiB" : file.reason));
        return std::nullopt;
    }

    Steps steps;
    std::string_view rest = file.bytes;
    int lineNumber = 0;
    const auto broken = [&](const std::string& what) {
        m_report(path + ":" + std::to_string(lineNumber) + ": left out, " + what);
        return std::nullopt;
    };
    while (!rest.empty()) {
        const std::string_view line = takeUntil(rest, '\n');
        ++lineNumber;
        if (lineNumber == 1) {
            if (line != s_head)
                return broken("expected " + quoted(s_head) + ", found " + quoted(line));
        } else if (line == s_end) {
            if (!rest.empty()) {
                ++lineNumber;
                return broken("expected nothing behind " + quoted(s_end));
            }
            return steps;
        } else if (const std::string fault = parseStep(line, steps); !fault.empty()) {
            return broken(fault);
        }
    }
    ++lineNumber;
    return broken("the file ends without its last line, " + quoted(s_end));
}

bool MacroStore::write(const std::string& name, const Steps& steps) const {
    const std::string fileName = fileNameOf(name);
    const std::string path = pathOf(fileName);
    const std::string draft = pathOf('.' + fileName + ".tmp");
    {
        const base::UniqueFd file(
            ::open(draft.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
        if (!file || !base::writeAll(file.get(), toText(steps)) || ::fsync(file.get()) != 0) {
            m_report("cannot write " + draft + ": " + systemReason());
            ::unlink(draft.c_str());
            return false;
        }
    }
    if (std::rename(draft.c_str(), path.c_str()) != 0) {
        m_report("cannot replace " + path + ": " + systemReason());
        ::unlink(draft.c_str());
        return false;
    }
    return syncDirectory();
}

bool MacroStore::remove(const std::string& name) const {
    const std::string path = pathOf(fileNameOf(name));
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
        m_report("cannot remove " + path + ": " + systemReason());
        return false;
    }
    return syncDirectory();
}

bool MacroStore::syncDirectory() const {
    const base::UniqueFd directory(::open(m_directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory && ::fsync(directory.get()) == 0)
        return true;
    m_report("cannot settle the macro directory \"" + m_directory + "\": " + systemReason());
    return false;
}
