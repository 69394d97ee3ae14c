#include "sal/LogManager.h"

#include <fcntl.h>
#include <spdlog/details/os.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <string_view>
#include <utility>

#include "ErrorPipe.h"
#include "ErrorPipeSink.h"
#include "JournalSink.h"
#include "LogChannel.h"
#include "LogCore.h"
#include "LogOutputImpl.h"
#include "Printable.h"
#include "StandardErrorSink.h"
#include "UniqueFd.h"

namespace sal {

template <class T>
T* SingletonDll<T>::s_pInstance = nullptr;
template class SingletonDll<LogManager>;

namespace {

constexpr std::size_t s_fileSize = 10u << 20;
constexpr std::size_t s_oldFiles = 4;

/// "<3>" and the like, by which the journal learns the level of a line.
class JournalPriority : public spdlog::custom_flag_formatter {
public:
    void format(const spdlog::details::log_msg& message, const std::tm&,
                spdlog::memory_buf_t& line) override {
        const std::string_view text = prefix(message.level);
        line.append(text.data(), text.data() + text.size());
    }
    std::unique_ptr<custom_flag_formatter> clone() const override {
        return std::make_unique<JournalPriority>();
    }

private:
    static std::string_view prefix(spdlog::level::level_enum level) {
        switch (level) {
            case spdlog::level::critical:
                return "<2>";
            case spdlog::level::err:
                return "<3>";
            case spdlog::level::warn:
                return "<4>";
            case spdlog::level::info:
                return "<6>";
            default:
                return "<7>";
        }
    }
};

/// The journal names its own end of standard error in JOURNAL_STREAM, as device:inode.
bool isJournal() {
    const char* journal = std::getenv("JOURNAL_STREAM");
    struct stat status {};
    return journal && ::fstat(STDERR_FILENO, &status) == 0 &&
           std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) == journal;
}

bool isColourTerminal() {
    const char* terminal = std::getenv("TERM");
    const char* noColour = std::getenv("NO_COLOR");
    return ::isatty(STDERR_FILENO) && terminal && std::string_view(terminal) != "dumb" &&
           (!noColour || !*noColour);
}

/// Who speaks: the tag and the output's name, once when they are the same.
class Speaker : public spdlog::custom_flag_formatter {
public:
    explicit Speaker(const std::string& tag) : m_tag(base::printable(tag)) {}

    void format(const spdlog::details::log_msg& message, const std::tm&,
                spdlog::memory_buf_t& line) override {
        const std::string_view name(message.logger_name.data(), message.logger_name.size());
        if (!m_tag.empty() && m_tag != name) {
            line.append(m_tag.data(), m_tag.data() + m_tag.size());
            line.push_back(' ');
        }
        line.append(name.data(), name.data() + name.size());
    }
    std::unique_ptr<custom_flag_formatter> clone() const override { return std::make_unique<Speaker>(m_tag); }

private:
    std::string m_tag;
};

std::unique_ptr<spdlog::formatter> makeFormatter(const std::string& tag, const std::string& pattern) {
    auto pFormatter = std::make_unique<spdlog::pattern_formatter>();
    pFormatter->add_flag<JournalPriority>('*').add_flag<Speaker>('N', tag).set_pattern(pattern);
    return pFormatter;
}

std::unique_ptr<spdlog::formatter> formatForPeople(const std::string& tag) {
    return makeFormatter(tag, "%Y-%m-%d %H:%M:%S.%e %^%-8l%$ %N: %v");
}

/// The journal's own end of standard error takes what its socket does not.
spdlog::sink_ptr openJournal(const LogManager::Settings& settings) {
    auto pOther = std::make_shared<StandardErrorSink>(false);
    pOther->set_formatter(makeFormatter(settings.tag, "%*%N: %v"));
    auto pSink = std::make_shared<JournalSink>(
        JournalSink::Settings{.socket = settings.journal,
                              .identifier = settings.tag.empty() ? program_invocation_short_name
                                                                 : base::printable(settings.tag),
                              .driver = base::printable(settings.tag),
                              .driverOf = settings.driverOf},
        std::move(pOther));
    pSink->set_formatter(makeFormatter(settings.tag, "%N: %v"));
    return pSink;
}

spdlog::sink_ptr openOwnStandardError(const LogManager::Settings& settings) {
    if (isJournal())
        return openJournal(settings);
    auto pSink = std::make_shared<StandardErrorSink>(isColourTerminal());
    pSink->set_formatter(formatForPeople(settings.tag));
    return pSink;
}

spdlog::sink_ptr openStandardError(const LogManager::Settings& settings, bool isPipeToHost) {
    if (!isPipeToHost)
        return openOwnStandardError(settings);
    return std::make_shared<ErrorPipeSink>(
        settings.tag, [settings](const std::string&) { return openOwnStandardError(settings); });
}

/// Made here and not by the sink, which leaves the mode to the umask: not open to others for writing, and
/// never closed to ourselves. A file that is there stays as it is.
void makeFile(const std::string& file) {
    spdlog::details::os::create_dir(spdlog::details::os::dir_name(file));
    const base::UniqueFd made(::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    struct stat status {};
    if (made && ::fstat(made.get(), &status) == 0)
        ::fchmod(made.get(), (status.st_mode & 07777) | S_IRUSR | S_IWUSR);
}

spdlog::sink_ptr openFile(const std::string& file, const std::string& tag) {
    // Opening a pipe would wait for its reader, and turning over a device would rename it.
    struct stat status {};
    if (::stat(file.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        throw spdlog::spdlog_ex(file + " is not a regular file");
    spdlog::file_event_handlers handlers;
    handlers.before_open = makeFile;
    auto pSink =
        std::make_shared<spdlog::sinks::rotating_file_sink_st>(file, s_fileSize, s_oldFiles, false, handlers);
    pSink->set_formatter(formatForPeople(tag));
    return pSink;
}

std::shared_ptr<LogCore> makeCore(const LogManager::Settings& settings) {
    auto pCore = std::make_shared<LogCore>(settings.level);
    auto pStandardError = std::make_shared<LogChannel>(
        [settings, isPipeToHost = ErrorPipe::take()] { return openStandardError(settings, isPipeToHost); },
        [](const std::string&) {});
    pCore->addChannel(pStandardError);
    if (settings.file.empty())
        return pCore;

    // The working directory may change while the file is turned over.
    std::error_code error;
    std::filesystem::path file = std::filesystem::absolute(settings.file, error);
    if (error)
        file = settings.file;
    const auto complain = [pWeak = std::weak_ptr<LogChannel>(pStandardError)](const std::string& what) {
        if (const auto pChannel = pWeak.lock())
            pChannel->post(std::make_shared<const LogRecord>(
                LogRecord{spdlog::level::err, spdlog::log_clock::now(), "LOG", base::printable(what)}));
    };
    pCore->addChannel(std::make_shared<LogChannel>(
        [file = file.string(), tag = settings.tag] { return openFile(file, tag); }, complain, "log file"));
    return pCore;
}

std::uint64_t nextNumber() {
    static std::atomic<std::uint64_t> s_number{0};
    return ++s_number;
}

}  // namespace

struct LogManager::Impl {
    std::shared_ptr<LogCore> pCore;
    std::mutex mutex;
    std::map<std::string, std::unique_ptr<LogOutput>> outputs;
};

LogManager::LogManager() : LogManager(Settings()) {}

LogManager::LogManager(const Settings& settings) : m_pImpl(std::make_unique<Impl>()) {
    SAL_ASSERT(!s_pInstance);
    m_pImpl->pCore = makeCore(settings);
    s_pInstance = this;
}

LogManager::~LogManager() {
    s_pInstance = nullptr;
}

LogOutput* LogManager::getLogOutput(const std::string& name) {
    const std::lock_guard lock(m_pImpl->mutex);
    auto& pOutput = m_pImpl->outputs[name];
    if (!pOutput) {
        auto pImpl = std::make_unique<LogOutput::Impl>();
        pImpl->name = name;
        pImpl->number = nextNumber();
        pImpl->pCore = m_pImpl->pCore;
        pOutput.reset(new LogOutput(std::move(pImpl)));
    }
    return pOutput.get();
}

void LogManager::write(const Line& line) {
    m_pImpl->pCore->write(line);
}

LogManager::ErrorLine LogManager::readErrorLine(std::string_view bytes) {
    return ErrorPipe::read(bytes);
}

void LogManager::setObserver(Observer* pObserver) {
    m_pImpl->pCore->setObserver(pObserver);
}

void LogManager::setLevel(int level) {
    m_pImpl->pCore->setLevel(level);
}

int LogManager::level() const {
    return m_pImpl->pCore->level();
}

void LogManager::flush() {
    m_pImpl->pCore->flush();
}

}  // namespace sal
