#include "Fault.h"

#include <signal.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point endOf(int milliseconds) {
    return milliseconds == 0 ? Clock::time_point::max()
                             : Clock::now() + std::chrono::milliseconds(milliseconds);
}

/// Reads the clock all the time, which the compiler may not leave out.
void spin(int milliseconds) {
    const auto end = endOf(milliseconds);
    while (Clock::now() < end) {
    }
}

void rest(int milliseconds) {
    const auto end = endOf(milliseconds);
    while (Clock::now() < end)
        std::this_thread::sleep_until(std::min(end, Clock::now() + std::chrono::hours(1)));
}

/// A real access, not a signal that is sent: its address is what a crash report shows. No sanitizer is to see
/// it first.
__attribute__((no_sanitize("address", "undefined", "thread"))) void writeToNowhere() {
    // A handler, as a sanitizer sets one, would make an ordinary end of it.
    ::signal(SIGSEGV, SIG_DFL);
    volatile int* volatile pNowhere = nullptr;
    *pNowhere = 1;  // cppcheck-suppress nullPointer ; that is the fault
}

}  // namespace

struct Fault::Word {
    const char* text;
    EKind kind;
    const char* number;  ///< what the number stands for; null for a word without one
    int most;
};

const Fault::Word Fault::s_words[] = {
    {"crash", eCrash, nullptr, 0},
    {"abort", eAbort, nullptr, 0},
    {"exit", eExit, "exit code", 255},
    {"kill", eKill, nullptr, 0},
    {"busy", eBusy, "milliseconds, 0 for ever", 86400000},
    {"sleep", eSleep, "milliseconds, 0 for ever", 86400000},
    {"throw", eThrow, nullptr, 0},
    {"thrownumber", eThrowNumber, nullptr, 0},
    {"fail", eFail, nullptr, 0},
};

std::optional<Fault> Fault::parse(const std::string& text, std::string& error) {
    std::istringstream stream(text);
    std::string name;
    std::string number;
    std::string rest;
    stream >> name >> number >> rest;
    const auto word =
        std::find_if(std::begin(s_words), std::end(s_words), [&](const Word& w) { return name == w.text; });
    if (word == std::end(s_words)) {
        error = "\"" + text + "\" is no fault; there are " + words();
        return std::nullopt;
    }
    int value = 0;
    const char* pEnd = number.data() + number.size();
    const auto [pStop, code] = std::from_chars(number.data(), pEnd, value);
    const bool isNumber = code == std::errc() && pStop == pEnd && value >= 0 && value <= word->most;
    if (!rest.empty() || (!number.empty() && (!word->number || !isNumber))) {
        error = "\"" + text + "\": " + name +
                (word->number ? " takes a number from 0 to " + std::to_string(word->most)
                              : std::string(" takes nothing"));
        return std::nullopt;
    }
    return Fault(word->kind, value);
}

std::string Fault::words() {
    std::string text;
    for (const Word& word : s_words)
        text += (text.empty() ? "" : ", ") + std::string(word.text) +
                (word.number ? " (" + std::string(word.number) + ")" : std::string());
    return text;
}

bool Fault::strike() const {
    switch (m_kind) {
        case eCrash:
            writeToNowhere();
            break;
        case eAbort:
            std::abort();
        case eExit:
            std::exit(m_number);
        case eKill:
            ::raise(SIGKILL);
            break;
        case eBusy:
            spin(m_number);
            break;
        case eSleep:
            ::rest(m_number);
            break;
        case eThrow:
            throw std::runtime_error("thrown on purpose");
        case eThrowNumber:
            throw 42;
        case eFail:
            return false;
    }
    return true;
}

std::string Fault::text() const {
    const auto word = std::find_if(std::begin(s_words), std::end(s_words),
                                   [this](const Word& w) { return w.kind == m_kind; });
    return word->text + (word->number ? " " + std::to_string(m_number) : std::string());
}
