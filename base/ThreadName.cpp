#include "ThreadName.h"

#include <pthread.h>

#include <algorithm>

namespace base {

namespace {

/// Asks for no memory: a thread that cannot be named goes on.
class Text {
public:
    void add(std::string_view text) noexcept {
        const std::string_view fitting = text.substr(0, s_longest - m_length);
        std::copy(fitting.begin(), fitting.end(), m_text + m_length);
        m_length += fitting.size();
    }
    void apply() const noexcept { static_cast<void>(pthread_setname_np(pthread_self(), m_text)); }

private:
    static constexpr std::size_t s_longest = 15;
    char m_text[s_longest + 1] = {};
    std::size_t m_length = 0;
};

}  // namespace

void nameThread(std::string_view servesWhom, std::string_view does) noexcept {
    Text text;
    text.add(servesWhom);
    text.add(" ");
    text.add(does);
    text.apply();
}

void nameThread(std::string_view does) noexcept {
    Text text;
    text.add(does);
    text.apply();
}

}  // namespace base
