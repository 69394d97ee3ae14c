#include "QueueMaker.h"

#include <sys/random.h>

#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <string_view>

namespace sal {

namespace {

constexpr std::size_t s_makerDigits = 16;

std::atomic<std::uint64_t> s_maker{0};
std::atomic<std::uint64_t> s_made{0};

/// Process IDs come again, so that two makers would be the same sooner or later.
std::uint64_t draw() {
    std::uint64_t number = 0;
    if (::getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number || number == 0)
        number = static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count()) | 1;
    return number;
}

std::uint64_t maker() {
    std::uint64_t own = s_maker.load();
    if (own == 0) {
        const std::uint64_t drawn = draw();
        if (s_maker.compare_exchange_strong(own, drawn))
            own = drawn;
    }
    return own;
}

bool parse(std::string_view text, int base, std::uint64_t& number) {
    const char* const pEnd = text.data() + text.size();
    const auto result = std::from_chars(text.data(), pEnd, number, base);
    return result.ec == std::errc() && result.ptr == pEnd && number != 0;
}

std::optional<QueueMaker::Mark> parse(std::string_view text) {
    QueueMaker::Mark mark;
    if (text.size() < s_makerDigits + 2 || text[s_makerDigits] != ':' ||
        !parse(text.substr(0, s_makerDigits), 16, mark.maker) ||
        !parse(text.substr(s_makerDigits + 1), 10, mark.number))
        return std::nullopt;
    return mark;
}

}  // namespace

QueueMaker::Mark QueueMaker::next() {
    return {maker(), s_made.fetch_add(1) + 1};
}

std::optional<std::string> QueueMaker::forChild() {
    const std::uint64_t made = s_made.load();
    if (made == 0)
        return std::nullopt;
    std::array<char, s_makerDigits> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), maker(), 16);
    const std::string text(digits.data(), end.ptr);
    return std::string(s_makerDigits - text.size(), '0') + text + ":" + std::to_string(made);
}

bool QueueMaker::isHanded() {
    const char* pText = std::getenv(s_variable);
    return pText && parse(pText).has_value();
}

std::string QueueMaker::refusal(const Mark& queue) {
    const char* pText = std::getenv(s_variable);
    if (!pText || *pText == '\0')
        return {};
    const auto handed = parse(pText);
    if (!handed)
        return std::string(s_variable) + "=" + pText +
               " is not 16 hexadecimal digits, a colon and a number; a process that is started by hand needs "
               "none";
    if (queue.maker != handed->maker)
        return "it was made by another host than the one that started this process";
    if (queue.number > handed->number)
        return "it was made for a process that was started later than this one, which has been replaced";
    return {};
}

void QueueMaker::forget() {
    s_maker.store(0);
    s_made.store(0);
}

}  // namespace sal
