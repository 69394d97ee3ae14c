#include "LinkTopics.h"

#include <algorithm>
#include <array>
#include <utility>

#include "Printable.h"

namespace {

constexpr std::string_view s_root = "mf/1/";
constexpr std::string_view s_digits = "0123456789ABCDEF";
/// Of the UTF-8 text that a topic is.
constexpr std::size_t s_longestTopic = 65535;

struct KindWord {
    LinkTopics::EKind kind;
    const char* pWord;
    std::size_t levels;  ///< after the word
};
constexpr std::array<KindWord, 6> s_kinds{{{LinkTopics::EKind::Up, "up", 0},
                                           {LinkTopics::EKind::Tick, "tick", 0},
                                           {LinkTopics::EKind::State, "state", 2},
                                           {LinkTopics::EKind::Event, "event", 2},
                                           {LinkTopics::EKind::Fid, "fid", 2},
                                           {LinkTopics::EKind::Reply, "reply", 1}}};

bool isWrittenOut(char c, bool isOdd) {
    const auto byte = static_cast<unsigned char>(c);
    return (isOdd && byte >= 0x80) || byte < 0x20 || byte == 0x7f || c == '/' || c == '+' || c == '#' ||
           c == '%';
}

std::vector<std::string_view> levelsOf(std::string_view topic) {
    std::vector<std::string_view> levels;
    for (std::size_t begin = 0;;) {
        const std::size_t end = topic.find('/', begin);
        levels.push_back(topic.substr(begin, end - begin));
        if (end == std::string_view::npos)
            return levels;
        begin = end + 1;
    }
}

}  // namespace

std::string LinkTopics::encoded(std::string_view level) {
    // Brokers refuse topics that are no plain UTF-8.
    const bool isOdd = !base::isPrintable(level);
    std::string text;
    for (const char c : level) {
        if (!isWrittenOut(c, isOdd)) {
            text += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        text += '%';
        text += s_digits[byte >> 4];
        text += s_digits[byte & 15];
    }
    return text;
}

std::optional<std::string> LinkTopics::decoded(std::string_view level) {
    std::string text;
    for (std::size_t i = 0; i < level.size(); ++i) {
        if (level[i] != '%') {
            text += level[i];
            continue;
        }
        const auto high = i + 2 < level.size() ? s_digits.find(level[i + 1]) : std::string_view::npos;
        const auto low = i + 2 < level.size() ? s_digits.find(level[i + 2]) : std::string_view::npos;
        if (high == std::string_view::npos || low == std::string_view::npos)
            return std::nullopt;
        text += static_cast<char>(high * 16 + low);
        i += 2;
    }
    // One name has one topic: nobody gets past a rule for it by writing it otherwise.
    if (encoded(text) != level)
        return std::nullopt;
    return text;
}

std::string LinkTopics::below(const std::string& site, const char* pKind) {
    return std::string(s_root) + encoded(site) + "/" + pKind;
}

std::string LinkTopics::below(const std::string& site, const char* pKind, const std::string& driver,
                              const std::string& name) {
    return below(site, pKind) + "/" + encoded(driver) + "/" + encoded(name);
}

std::string LinkTopics::allBelow(const std::string& site, const char* pKind, const std::string& driver) {
    return below(site, pKind) + "/" + (driver == "*" ? "+" : encoded(driver)) + "/+";
}

std::string LinkTopics::up(const std::string& site) {
    return below(site, "up");
}

std::string LinkTopics::tick(const std::string& site) {
    return below(site, "tick");
}

std::string LinkTopics::state(const std::string& site, const std::string& driver, const std::string& name) {
    return below(site, "state", driver, name);
}

std::string LinkTopics::event(const std::string& site, const std::string& driver, const std::string& name) {
    return below(site, "event", driver, name);
}

std::string LinkTopics::fid(const std::string& site, const std::string& driver, const std::string& name) {
    return below(site, "fid", driver, name);
}

std::string LinkTopics::reply(const std::string& site, const std::string& boot) {
    return below(site, "reply") + "/" + encoded(boot);
}

std::string LinkTopics::states(const std::string& site, const std::string& driver) {
    return allBelow(site, "state", driver);
}

std::string LinkTopics::events(const std::string& site, const std::string& driver) {
    return allBelow(site, "event", driver);
}

std::string LinkTopics::fids(const std::string& site, const std::string& driver) {
    return allBelow(site, "fid", driver);
}

std::string LinkTopics::replies(const std::string& site) {
    return below(site, "reply") + "/+";
}

std::string LinkTopics::tree(const std::string& site) {
    return below(site, "#");
}

std::optional<LinkTopics::Parts> LinkTopics::parse(std::string_view topic) {
    if (!topic.starts_with(s_root) || topic.size() > s_longestTopic)
        return std::nullopt;
    const std::vector<std::string_view> levels = levelsOf(topic.substr(s_root.size()));
    if (levels.size() < 2)
        return std::nullopt;
    const auto known = std::find_if(s_kinds.begin(), s_kinds.end(),
                                    [&](const KindWord& kind) { return levels[1] == kind.pWord; });
    if (known == s_kinds.end() || levels.size() != 2 + known->levels)
        return std::nullopt;
    std::array<std::string, 3> texts;
    std::size_t count = 0;
    for (std::size_t i = 0; i < levels.size(); ++i) {
        if (i == 1)
            continue;
        auto text = decoded(levels[i]);
        if (!text || text->empty())
            return std::nullopt;
        texts.at(count++) = std::move(*text);
    }
    return Parts{std::move(texts[0]), known->kind, std::move(texts[1]), std::move(texts[2])};
}
