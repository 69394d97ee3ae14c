#include "XmlInput.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

#include "RegularFile.h"

namespace {

/// Reads markup piece by piece, without recursion.
class Scanner {
public:
    explicit Scanner(std::string_view text) : m_text(text) {}

    std::optional<int> tooDeepLine() {
        int depth = 0;
        while ((m_position = m_text.find('<', m_position)) != std::string_view::npos) {
            if (startsWith("<!--")) {
                skipBehind("-->", 4);
            } else if (startsWith("<![CDATA[")) {
                skipBehind("]]>", 9);
            } else if (startsWith("<?xml")) {
                if (const bool isWhole = skipTag(); !isWhole)
                    return lineOf(m_position);
            } else if (startsWith("</")) {
                // Outside of all elements it ends none.
                depth = std::max(depth - 1, 0);
                skipBehind(">", 2);
            } else if (isNameStart(m_position + 1)) {
                const std::size_t start = m_position;
                skipTag();
                if (depth == XmlInput::s_maxDepth)
                    return lineOf(start);
                if (!m_text.substr(start, m_position - start).ends_with("/>"))
                    ++depth;
            } else {
                skipBehind(">", 1);
            }
        }
        return std::nullopt;
    }

private:
    bool startsWith(std::string_view begin) const {
        // The library compares these in any case of letters.
        const std::string_view here = m_text.substr(m_position, begin.size());
        return here.size() == begin.size() && strncasecmp(here.data(), begin.data(), begin.size()) == 0;
    }

    bool isNameStart(std::size_t position) const {
        if (position >= m_text.size())
            return false;
        const auto byte = static_cast<unsigned char>(m_text[position]);
        return byte >= 127 || std::isalpha(byte) || byte == '_';
    }

    void skipBehind(std::string_view end, std::size_t offset) {
        const std::size_t found = m_text.find(end, m_position + offset);
        m_position = found == std::string_view::npos ? m_text.size() : found + end.size();
    }

    /// Goes past the tag's ">", which may also be inside quotes. False when a "<" comes first, which no
    /// well-formed declaration has.
    bool skipTag() {
        char quote = 0;
        bool isWhole = true;
        for (++m_position; m_position < m_text.size(); ++m_position) {
            const char c = m_text[m_position];
            if (c == '<')
                isWhole = false;
            if (quote) {
                if (c == quote)
                    quote = 0;
            } else if (c == '"' || c == '\'') {
                quote = c;
            } else if (c == '>') {
                ++m_position;
                break;
            }
        }
        return isWhole;
    }

    int lineOf(std::size_t position) const {
        return 1 + static_cast<int>(
                       std::count(m_text.begin(), m_text.begin() + static_cast<long>(position), '\n'));
    }

    std::string_view m_text;
    std::size_t m_position = 0;
};

}  // namespace

std::optional<int> XmlInput::tooDeepLine(const std::string& text) {
    return Scanner(text).tooDeepLine();
}

XmlInput XmlInput::read(const std::string& path) {
    base::RegularFile file = base::RegularFile::read(path);
    const auto refused = [&](const std::string& text) {
        return XmlInput{std::nullopt, file.reason, Finding{Finding::ESeverity::Error, path, 0, text}};
    };
    switch (file.fault) {
        case base::RegularFile::EFault::None:
            break;
        case base::RegularFile::EFault::NotOpened:
            return {std::nullopt, file.reason, std::nullopt};
        case base::RegularFile::EFault::NotRead:
            return refused("cannot be read: " + file.reason);
        case base::RegularFile::EFault::NotRegular:
            return refused("is no regular file");
        case base::RegularFile::EFault::TooLarge:
            return refused("has " + std::to_string(file.size) + " bytes; at most 16 MB are read");
    }
    std::optional<Finding> found;
    if (const auto line = tooDeepLine(file.bytes))
        found = {Finding::ESeverity::Error, path, *line,
                 "elements nest deeper than " + std::to_string(s_maxDepth) + " levels"};
    return {std::move(file.bytes), {}, std::move(found)};
}

std::string XmlInput::refusal(const std::string& path) {
    const auto found = read(path).finding;
    return found ? found->inWords() : std::string();
}
