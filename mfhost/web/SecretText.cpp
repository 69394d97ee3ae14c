#include "SecretText.h"

#include <openssl/sha.h>
#include <sys/random.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace {

template <std::size_t Count>
std::array<unsigned char, Count> randomBytes() {
    std::array<unsigned char, Count> bytes{};
    // So few come in one piece.
    while (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(Count)) {
        if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "random numbers");
    }
    return bytes;
}

}  // namespace

std::string randomToken() {
    static constexpr std::string_view s_letters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    constexpr std::size_t letters = 43;
    // Six bits of each are used.
    std::string text;
    for (const unsigned char byte : randomBytes<letters>())
        text += s_letters[byte & 63u];
    return text;
}

std::string randomDigits(std::size_t count) {
    std::string text;
    while (text.size() < count) {
        for (const unsigned char byte : randomBytes<16>()) {
            // So that each digit is as likely.
            if (byte < 250 && text.size() < count)
                text += static_cast<char>('0' + byte % 10);
        }
    }
    return text;
}

std::string hashOf(std::string_view secret) {
    std::string hash(SHA256_DIGEST_LENGTH, '\0');
    ::SHA256(reinterpret_cast<const unsigned char*>(secret.data()), secret.size(),
             reinterpret_cast<unsigned char*>(hash.data()));
    return hash;
}
