#include "NewDriver.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "NewDriverTemplates.h"
#include "OutputFile.h"
#include "Printable.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t s_longestName = 40;
/// Targets that a build has of its own, and the driver that each host starts.
constexpr std::array<std::string_view, 8> s_taken = {"all",     "clean",   "edit_cache", "help",
                                                     "install", "package", "panel",      "test"};

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return text;
}

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
    return text;
}

/// "lamp" and "Lamp" are both the type "Lamp".
std::string typeOf(std::string name) {
    name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
    return name;
}

std::string replaced(std::string text, std::string_view what, const std::string& with) {
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size()))
        text.replace(at, what.size(), with);
    return text;
}

}  // namespace

std::string NewDriver::nameFault(const std::string& name) {
    const auto isLetter = [](unsigned char letter) { return letter < 128 && std::isalpha(letter) != 0; };
    const auto fits = [&](unsigned char letter) {
        return isLetter(letter) || (letter >= '0' && letter <= '9') || letter == '_';
    };
    if (name.empty() || name.size() > s_longestName || !isLetter(static_cast<unsigned char>(name[0])) ||
        !std::all_of(name.begin(), name.end(), fits))
        return base::quoted(name) + " is no name of a driver: a letter, then at most " +
               std::to_string(s_longestName - 1) + " letters, digits and _, such as lamp";
    if (std::find(s_taken.begin(), s_taken.end(), lower(name)) != s_taken.end())
        return base::quoted(name) + " cannot be the name of a driver, it has a meaning of its own; " +
               base::quoted("my_" + lower(name)) + " would be one";
    return {};
}

std::vector<NewDriver::File> NewDriver::files(const std::string& name) {
    const auto filled = [&](std::string_view text) {
        std::string result = replaced(std::string(text), "@TYPE@", typeOf(name));
        result = replaced(result, "@UPPER@", upper(name));
        return replaced(result, "@NAME@", lower(name));
    };
    std::vector<File> files;
    for (const DriverTemplate& file : driverTemplates())
        files.push_back({filled(file.name), filled(file.text)});
    return files;
}

EExit NewDriver::write(const std::string& name, const std::string& directory) const {
    if (const std::string fault = nameFault(name); !fault.empty()) {
        m_screen.complain(fault);
        return EExit::WrongUsage;
    }
    const fs::path place = directory.empty() ? fs::path(lower(name)) : fs::path(directory);
    const std::vector<File> all = files(name);
    for (const File& file : all) {
        std::error_code failed;
        if (fs::exists(fs::symlink_status(place / file.name, failed))) {
            m_screen.complain((place / file.name).string() + " is there already; nothing was written");
            return EExit::Failed;
        }
    }
    std::error_code failed;
    const bool isNew = fs::create_directories(place, failed);
    std::string fault = failed ? place.string() + ": " + failed.message() : std::string();
    std::vector<fs::path> written;
    for (const File& file : all) {
        if (!fault.empty())
            break;
        fault = createFile(place / file.name, file.text, 0666);
        if (fault.empty())
            written.push_back(place / file.name);
    }
    if (!fault.empty()) {
        for (const fs::path& path : written)
            fs::remove(path, failed);
        if (isNew)
            fs::remove(place, failed);
        m_screen.complain(fault + "; nothing was written");
        return EExit::Failed;
    }

    m_screen.out << "Written to " << base::printable(place.string()) << ":";
    for (const File& file : all)
        m_screen.out << " " << file.name;
    const std::string words = base::printable(place.string());
    m_screen.out << "\nBuild and test it:\n  cmake -S " << words << " -B " << words
                 << "/build && cmake --build " << words << "/build && ctest --test-dir " << words
                 << "/build --output-on-failure\n";
    return EExit::Done;
}
