#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace mfd {

/// What a driver remembers over restarts, as one file in its NVRAM directory: names with values. A member of
/// the driver, read in start() and written where something is worth it; whoever reads the file, after a loss
/// of power too, finds it from before or from after a save(), whole. Used by one thread at a time.
class Settings {
public:
    using Values = std::map<std::string, std::string>;
    /// Makes of the values of a former version those of this one. What it throws is a reason to set the file
    /// aside.
    using Migration = std::function<void(int from, Values& values)>;

    /// The version of what the driver writes, from 1.
    explicit Settings(int version = 1, Migration migration = {});

    /// Reads settings.txt in that directory; a missing file has no values. Empty on success, else a line that
    /// says what is wrong and what was done. A file that is broken, or of a later version than this driver's,
    /// is set aside beside it (settings.txt.broken, settings.txt.version3) and has no values. One that cannot
    /// be read stays as it is, and is not written until load() succeeds.
    std::string load(const std::string& directory);
    /// Writes all values. Empty on success, else the system's reason with the file's name; the file from
    /// before is in its place then.
    std::string save() const;

    /// The value of that name; the fallback when there is none, or it is of another type.
    std::string text(const std::string& name, const std::string& fallback = {}) const;
    int integer(const std::string& name, int fallback = 0) const;
    double number(const std::string& name, double fallback = 0) const;
    bool boolean(const std::string& name, bool fallback = false) const;

    /// For the next save(). The name has 1 to 255 bytes and no "=", a std::logic_error says so else.
    void set(const std::string& name, const std::string& value);
    void set(const std::string& name, const char* value) { set(name, std::string(value)); }
    void set(const std::string& name, int value);
    void set(const std::string& name, double value);
    void set(const std::string& name, bool value);
    void remove(const std::string& name);
    const Values& values() const { return m_values; }

private:
    std::string parse(const std::string& bytes, int& version, Values& values) const;
    std::string setAside(const std::string& ending, const std::string& why);

    const int m_version;
    const Migration m_migration;
    std::string m_path;  ///< empty until a file may be written
    Values m_values;
};

}  // namespace mfd
