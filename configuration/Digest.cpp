#include "Digest.h"

#include <openssl/evp.h>

#include <array>
#include <new>

std::string sha256(std::string_view bytes) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1)
        throw std::bad_alloc();
    static constexpr char s_digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < size; ++i) {
        text += s_digits[digest[i] >> 4];
        text += s_digits[digest[i] & 15];
    }
    return text;
}
