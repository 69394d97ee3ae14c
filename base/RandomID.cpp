#include "RandomID.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>

namespace base {

std::string randomID() {
    static constexpr std::string_view s_digits = "0123456789abcdef";
    std::array<unsigned char, 16> bytes{};
    while (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "no random numbers");
    }
    std::string text;
    for (const unsigned char byte : bytes) {
        text += s_digits[byte >> 4u];
        text += s_digits[byte & 0xfu];
    }
    return text;
}

}  // namespace base
