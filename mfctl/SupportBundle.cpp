#include "SupportBundle.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "OutputFile.h"
#include "ProgramOutput.h"
#include "Redaction.h"

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::milliseconds s_packLimit{60'000};

/// A directory for its owner alone, gone with the object.
class Draft {
public:
    Draft() : m_path((fs::temp_directory_path() / "mfctl-XXXXXX").string()) {
        if (!::mkdtemp(m_path.data()))
            m_path.clear();
    }
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;
    ~Draft() {
        std::error_code ignored;
        if (!m_path.empty())
            fs::remove_all(m_path, ignored);
    }
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

}  // namespace

void SupportBundle::add(const std::string& name, const std::string& text, const std::string& what) {
    if (text.empty())
        return;
    m_parts.push_back({name, Redaction::text(text), what});
}

void SupportBundle::addJson(const std::string& name, const std::string& json, const std::string& what) {
    const nlohmann::json value = nlohmann::json::parse(json, nullptr, false);
    if (value.is_discarded()) {
        add(name, json, what);
        return;
    }
    const std::string text =
        Redaction::json(value).dump(1, ' ', false, nlohmann::json::error_handler_t::replace);
    m_parts.push_back({name, text + "\n", what});
}

std::string SupportBundle::write(const std::string& path) const {
    const Draft draft;
    if (draft.path().empty())
        return path + ": no temporary directory: " + std::strerror(errno);
    const std::string root = draft.path() + "/support";
    if (::mkdir(root.c_str(), S_IRWXU) != 0)
        return root + ": " + std::strerror(errno);
    for (const Part& part : m_parts) {
        if (std::string error = createFile(root + "/" + part.name, part.text, 0600); !error.empty())
            return error;
    }
    // Made by us first, so that nobody else can read it at any time, and no file is replaced.
    if (std::string error = createFile(path, {}, 0600); !error.empty())
        return error;
    const ProgramOutput packed = ProgramOutput::of(
        {"tar", "--create", "--gzip", "--file", path, "--directory", draft.path(), "support"}, s_packLimit);
    if (packed.exitCode == 0)
        return {};
    ::unlink(path.c_str());
    return path + ": " + (packed.error.empty() ? packed.text : packed.error);
}
