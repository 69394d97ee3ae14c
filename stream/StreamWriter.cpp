#include "StreamWriter.h"

#include <bit>
#include <cstring>

#include "KeyTable.h"
#include "StreamRing.h"

namespace stream {
namespace {

constexpr std::size_t s_longestName = 255;

std::uint32_t keyOf(std::uint16_t driver) {
    return static_cast<std::uint32_t>(driver) << 16;
}

template <std::size_t count>
std::string_view bytesOf(const std::array<std::uint64_t, count>& words) {
    return {reinterpret_cast<const char*>(words.data()), sizeof words};
}

/// A length byte, for a name that stands before a text.
struct Name {
    explicit Name(std::string_view name)
        : text(name.substr(0, s_longestName)), length(static_cast<char>(text.size())) {}
    std::string_view lengthByte() const { return {&length, 1}; }

    std::string_view text;
    char length;
};

}  // namespace

std::uint64_t StreamWriter::value(Time when, EKind kind, const Key& key, std::uint32_t bits,
                                  std::string_view text) noexcept {
    StreamEntry entry{.kind = kind, .key = key.number, .value = bits, .texts = {text}};
    if ((key.number & 0xffffu) == 0)
        entry.keyText = key.text;
    return m_ring.write(when, entry);
}

std::uint64_t StreamWriter::valueText(Time when, const Key& key, std::string_view value) noexcept {
    return this->value(when, EKind::Text, key, 0, value);
}

std::uint64_t StreamWriter::valueFloat(Time when, const Key& key, float value) noexcept {
    return this->value(when, EKind::Float, key, std::bit_cast<std::uint32_t>(value), {});
}

std::uint64_t StreamWriter::valueInt(Time when, const Key& key, std::int32_t value) noexcept {
    return this->value(when, EKind::Int, key, static_cast<std::uint32_t>(value), {});
}

std::uint64_t StreamWriter::valueBool(Time when, const Key& key, bool value) noexcept {
    return this->value(when, EKind::Bool, key, value ? 1 : 0, {});
}

std::uint64_t StreamWriter::valueUnset(Time when, const Key& key) noexcept {
    return value(when, EKind::Unset, key, 0, {});
}

std::uint64_t StreamWriter::event(Time when, const Key& key, std::string_view value) noexcept {
    return this->value(when, EKind::Event, key, 0, value);
}

std::uint64_t StreamWriter::stale(Time when, std::uint16_t driver, std::uint32_t values,
                                  std::string_view cause) noexcept {
    return m_ring.write(when,
                        {.kind = EKind::Stale, .key = keyOf(driver), .value = values, .texts = {cause}});
}

std::uint64_t StreamWriter::fid(Time when, const Fid& fid) noexcept {
    const Name who(fid.who);
    const std::uint32_t value = fid.receiver | static_cast<std::uint32_t>(fid.origin) << 16 |
                                static_cast<std::uint32_t>(fid.outcome) << 24;
    return m_ring.write(when, {.kind = EKind::Fid,
                               .key = keyOf(fid.sender),
                               .value = value,
                               .texts = {who.lengthByte(), who.text, fid.fields}});
}

std::uint64_t StreamWriter::fidEnd(Time when, std::uint16_t sender, std::uint16_t receiver,
                                   std::uint64_t begin, EFidOutcome outcome, Duration took,
                                   std::string_view text) noexcept {
    const std::array<std::uint64_t, 2> head{begin, static_cast<std::uint64_t>(took.count())};
    return m_ring.write(when, {.kind = EKind::FidEnd,
                               .key = keyOf(receiver),
                               .value = static_cast<std::uint32_t>(outcome),
                               .causedBy = sender,
                               .texts = {bytesOf(head), text}});
}

std::uint64_t StreamWriter::command(Time when, std::uint16_t driver, EOrigin origin, std::string_view who,
                                    std::string_view line) noexcept {
    const Name name(who);
    return m_ring.write(when, {.kind = EKind::Command,
                               .key = keyOf(driver),
                               .value = static_cast<std::uint32_t>(origin),
                               .texts = {name.lengthByte(), name.text, line}});
}

std::uint64_t StreamWriter::commandEnd(Time when, std::uint16_t driver, std::uint64_t begin, bool ok,
                                       Duration took, std::string_view text) noexcept {
    const std::array<std::uint64_t, 2> head{begin, static_cast<std::uint64_t>(took.count())};
    return m_ring.write(when, {.kind = EKind::CommandEnd,
                               .key = keyOf(driver),
                               .value = ok ? 1u : 0u,
                               .texts = {bytesOf(head), text}});
}

std::uint64_t StreamWriter::start(Time when, std::uint16_t driver, std::uint32_t process,
                                  std::string_view text) noexcept {
    return m_ring.write(when,
                        {.kind = EKind::Start, .key = keyOf(driver), .value = process, .texts = {text}});
}

std::uint64_t StreamWriter::exit(Time when, std::uint16_t driver, std::uint32_t status,
                                 std::string_view cause) noexcept {
    return m_ring.write(when, {.kind = EKind::Exit, .key = keyOf(driver), .value = status, .texts = {cause}});
}

std::uint64_t StreamWriter::hang(Time when, std::uint16_t driver, std::string_view text) noexcept {
    return m_ring.write(when, {.kind = EKind::Hang, .key = keyOf(driver), .texts = {text}});
}

std::uint64_t StreamWriter::restart(Time when, std::uint16_t driver, std::string_view text) noexcept {
    return m_ring.write(when, {.kind = EKind::Restart, .key = keyOf(driver), .texts = {text}});
}

std::uint64_t StreamWriter::configuration(Time when, std::uint16_t driver, bool ok, Duration took,
                                          std::string_view operation) noexcept {
    const std::array<std::uint64_t, 1> head{static_cast<std::uint64_t>(took.count())};
    return m_ring.write(when, {.kind = EKind::Configuration,
                               .key = keyOf(driver),
                               .value = ok ? 1u : 0u,
                               .texts = {bytesOf(head), operation}});
}

std::uint64_t StreamWriter::log(Time when, std::uint16_t driver, std::uint32_t level, std::string_view output,
                                std::string_view text) noexcept {
    const Name name(output);
    return m_ring.write(when, {.kind = EKind::Log,
                               .key = keyOf(driver),
                               .value = level,
                               .texts = {name.lengthByte(), name.text, text}});
}

std::uint64_t StreamWriter::output(Time when, std::uint16_t driver, std::string_view line) noexcept {
    return m_ring.write(when, {.kind = EKind::Output, .key = keyOf(driver), .texts = {line}});
}

std::uint64_t StreamWriter::merged(Time when, std::uint16_t driver, std::uint64_t received,
                                   std::uint64_t merged, std::uint64_t delivered) noexcept {
    const std::array<std::uint64_t, 3> counts{received, merged, delivered};
    return m_ring.write(when, {.kind = EKind::Merged, .key = keyOf(driver), .texts = {bytesOf(counts)}});
}

std::uint64_t StreamWriter::mark(Time when, EOrigin origin, std::string_view who,
                                 std::string_view text) noexcept {
    const Name name(who);
    return m_ring.write(when, {.kind = EKind::Mark,
                               .value = static_cast<std::uint32_t>(origin),
                               .texts = {name.lengthByte(), name.text, text}});
}

std::uint64_t StreamWriter::wire(Time when, std::uint16_t driver, bool isFromDriver, bool ok,
                                 std::string_view bytes) noexcept {
    return m_ring.write(when, {.kind = EKind::Wire,
                               .key = keyOf(driver),
                               .value = (isFromDriver ? 0u : 1u) | (ok ? 0u : 2u),
                               .texts = {bytes}});
}

void StreamWriter::tick(Time now) {
    m_keys.sayAgain(now);
    // The clock may be set back.
    if (now >= m_counted && now - m_counted < std::chrono::seconds(1))
        return;
    m_counted = now;
    sayCounts(now);
}

void StreamWriter::sayCounts(Time now) {
    for (std::uint16_t driver = 0; driver < m_keys.drivers(); ++driver) {
        std::array<std::uint64_t, s_kinds + 1> words{};
        std::size_t count = 0;
        std::uint64_t total = 0;
        const auto put = [&](std::uint64_t kind, std::uint64_t records) {
            if (records == 0)
                return;
            words[count++] = kind << 56 | records;
            total += records;
        };
        for (std::size_t kind = 0; kind < s_kinds - 1; ++kind) {
            // They would be news each second.
            if (static_cast<EKind>(kind) != EKind::Counts)
                put(kind, m_ring.count(driver, static_cast<EKind>(kind)));
        }
        put(s_refusedKind, m_ring.refused(driver));
        if (total == m_totals[driver])
            continue;
        m_totals[driver] = total;
        m_ring.write(now, {.kind = EKind::Counts,
                           .key = keyOf(driver),
                           .texts = {std::string_view(reinterpret_cast<const char*>(words.data()),
                                                      count * sizeof(std::uint64_t))}});
    }
}

}  // namespace stream
