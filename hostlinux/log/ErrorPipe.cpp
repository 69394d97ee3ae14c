#include "ErrorPipe.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "Printable.h"
#include "UniqueFd.h"

namespace sal {
namespace {

/// No printable text holds them.
constexpr char s_lineBegin = '\x1e';
constexpr char s_separator = '\x1f';

/// Empty when the system does not tell.
std::string identityOf(int descriptor) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0)
        return {};
    return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

/// A driver may close them and have something else there.
struct Identities {
    std::string pipe;
    std::string former;
};
Identities& taken() {
    static Identities s_taken;
    return s_taken;
}

bool isStill(int descriptor, const std::string& identity) {
    return !identity.empty() && identityOf(descriptor) == identity;
}

/// No more than a pipe holds, whoever goes on writing into it.
constexpr std::size_t s_mostLeft = 1u << 20;

std::string readAvailable(int descriptor) {
    std::string text;
    std::array<char, 4096> piece{};
    while (text.size() < s_mostLeft) {
        const ssize_t count = ::read(descriptor, piece.data(), piece.size());
        if (count > 0)
            text.append(piece.data(), static_cast<std::size_t>(count));
        else if (count == 0 || errno != EINTR)
            break;
    }
    return text;
}

/// What comes before the next separator, which is taken away with it; nothing where there is none.
std::optional<std::string_view> takeField(std::string_view& rest) {
    const auto end = rest.find(s_separator);
    if (end == std::string_view::npos)
        return std::nullopt;
    const std::string_view field = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    return field;
}

template <class Number>
std::optional<Number> numberIn(std::optional<std::string_view> field) {
    Number number{};
    if (!field)
        return std::nullopt;
    const char* const pEnd = field->data() + field->size();
    const auto [pStop, error] = std::from_chars(field->data(), pEnd, number);
    return error == std::errc() && pStop == pEnd ? std::optional<Number>(number) : std::nullopt;
}

/// Nothing where the bytes are something else than a line of the log.
std::optional<LogManager::Line> decode(std::string_view bytes) {
    if (bytes.empty() || bytes.front() != s_lineBegin)
        return std::nullopt;
    bytes.remove_prefix(1);
    const auto level = numberIn<int>(takeField(bytes));
    const auto time = numberIn<std::int64_t>(takeField(bytes));
    const auto output = takeField(bytes);
    if (!level || *level < LogOutput::eCritical || *level > LogOutput::eTrace || !time || !output)
        return std::nullopt;
    return LogManager::Line{
        std::chrono::system_clock::time_point(
            std::chrono::duration_cast<std::chrono::system_clock::duration>(std::chrono::nanoseconds(*time))),
        *level, base::printable(*output), base::printable(bytes)};
}

}  // namespace

std::string ErrorPipe::variableFor(int writer) {
    const std::string identity = identityOf(writer);
    return identity.empty() ? identity : std::string(s_variable) + "=" + identity;
}

bool ErrorPipe::take() {
    const char* pValue = std::getenv(s_variable);
    if (!pValue)
        return false;
    const bool isIt = *pValue != '\0' && identityOf(STDERR_FILENO) == pValue;
    ::unsetenv(s_variable);
    if (isIt) {
        ::fcntl(s_formerErrors, F_SETFD, FD_CLOEXEC);
        taken() = {identityOf(STDERR_FILENO), identityOf(s_formerErrors)};
    }
    return isIt;
}

bool ErrorPipe::isInPlace() {
    return isStill(STDERR_FILENO, taken().pipe);
}

bool ErrorPipe::isAbandoned() {
    pollfd pipe{STDERR_FILENO, POLLOUT, 0};
    return isInPlace() && ::poll(&pipe, 1, 0) > 0 && (pipe.revents & POLLERR) != 0;
}

std::optional<std::string> ErrorPipe::leave() {
    if (!isInPlace() || !isStill(s_formerErrors, taken().former))
        return std::nullopt;
    // What has not been read stays in a pipe as long as it can be written to.
    const base::UniqueFd reader(::open("/proc/self/fd/2", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (::dup2(s_formerErrors, STDERR_FILENO) < 0)
        return std::nullopt;
    return reader ? readAvailable(reader.get()) : std::string();
}

std::string ErrorPipe::encode(int level, std::chrono::system_clock::time_point time, std::string_view output,
                              std::string_view text) {
    const auto sinceEpoch = std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch());
    std::string line(1, s_lineBegin);
    line += std::to_string(level);
    line += s_separator;
    line += std::to_string(sinceEpoch.count());
    line += s_separator;
    line += output;
    line += s_separator;
    line += text;
    line += '\n';
    return line;
}

LogManager::ErrorLine ErrorPipe::read(std::string_view bytes) {
    // It may follow text without a line end.
    const auto begin = std::min(bytes.find(s_lineBegin), bytes.size());
    auto logged = decode(bytes.substr(begin));
    const std::string_view bare = bytes.substr(0, logged ? begin : bytes.size());
    const bool isBlank = bare.find_first_not_of(" \t\r") == std::string_view::npos;
    return {isBlank ? std::string_view() : bare, std::move(logged)};
}

}  // namespace sal
