#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace stream {

/// The function and the parameters of a FID, as they stand in a message between host and driver process after
/// its six-byte code: a text is a length byte and as many bytes; after the function come a count byte and as
/// many pairs of texts. Made in place, without allocation. One thread.
class FidFields {
public:
    explicit FidFields(std::string_view function);

    /// A text of more than 255 bytes is cut; a parameter that does not fit is left out.
    void add(std::string_view name, std::string_view value);
    std::string_view bytes() const { return {m_bytes.data(), m_size}; }
    /// Whether something was cut or left out.
    bool isCut() const { return m_isCut; }

    /// What the bytes say. A parameter that is not whole is left out.
    struct Fid {
        std::string function;
        std::vector<std::pair<std::string, std::string>> parameters;
    };
    static Fid parse(std::string_view bytes);

    /// The same FID with "***" for the values of the parameters whose names are secret.
    template <class IsSecret>
    static FidFields masked(std::string_view bytes, IsSecret isSecret) {
        FidFields fields(takeText(bytes));
        std::size_t count = takeCount(bytes);
        for (; count > 0 && !bytes.empty(); --count) {
            const std::string_view name = takeText(bytes);
            const std::string_view value = takeText(bytes);
            fields.add(name, isSecret(name) ? s_mask : value);
        }
        return fields;
    }

    static constexpr std::string_view s_mask = "***";

private:
    static constexpr std::size_t s_longestText = 255;
    static constexpr std::size_t s_mostParameters = 255;

    /// The next text, or what there is of it.
    static std::string_view takeText(std::string_view& bytes);
    static std::size_t takeCount(std::string_view& bytes);
    void putText(std::string_view text);

    std::array<char, 2048> m_bytes;  ///< not set to zero: filled as far as it is used
    std::size_t m_size = 0;
    std::size_t m_count = 0;  ///< the place of the count byte
    bool m_isCut = false;
};

}  // namespace stream
