#include "KeyTable.h"

#include <algorithm>
#include <mutex>

#include "StreamRing.h"

namespace stream {
namespace {

constexpr std::size_t s_allOfRing = 16;
constexpr std::size_t s_driverOfAll = 32;
constexpr std::uint32_t s_lastKey = 0xffff;

}  // namespace

KeyTable::KeyTable(StreamRing& ring)
    : m_ring(ring),
      m_most(ring.size(ERing::Audit) / s_allOfRing),
      m_mostOfDriver(m_most / s_driverOfAll),
      m_drivers(1),
      m_saidAt(ring.head(ERing::Audit)) {}

std::uint16_t KeyTable::driver(std::string_view driverID, Time now) {
    {
        const std::shared_lock lock(m_mutex);
        if (const auto found = m_numbers.find(driverID); found != m_numbers.end())
            return found->second;
    }
    const std::unique_lock lock(m_mutex);
    if (const auto found = m_numbers.find(driverID); found != m_numbers.end())
        return found->second;
    const auto number = static_cast<std::uint16_t>(m_drivers.size());
    if (number >= s_lastDriver) {
        if (number == s_lastDriver) {
            m_drivers.emplace_back();
            define(static_cast<std::uint32_t>(s_lastDriver) << 16, "others", now);
        }
        return s_lastDriver;
    }
    m_drivers.emplace_back();
    m_numbers.emplace(driverID, number);
    define(static_cast<std::uint32_t>(number) << 16, driverID, now);
    return number;
}

std::uint16_t KeyTable::known(std::string_view driverID) const {
    const std::shared_lock lock(m_mutex);
    const auto found = m_numbers.find(driverID);
    return found == m_numbers.end() ? std::uint16_t{0} : found->second;
}

std::uint32_t KeyTable::key(std::uint16_t driver, std::string_view text, Time now) {
    const std::uint32_t none = static_cast<std::uint32_t>(driver) << 16;
    if (text.empty() || text.size() > s_longestText)
        return none;
    {
        const std::shared_lock lock(m_mutex);
        if (driver >= m_drivers.size())
            return none;
        const auto& keys = m_drivers[driver].keys;
        if (const auto found = keys.find(text); found != keys.end())
            return found->second;
        if (m_drivers[driver].isFull)
            return none;
    }
    const std::unique_lock lock(m_mutex);
    Driver& owner = m_drivers[driver];
    if (const auto found = owner.keys.find(text); found != owner.keys.end())
        return found->second;
    const std::size_t size = layout::sizeOf(text.size());
    if (owner.bytes + size > m_mostOfDriver || m_bytes + size > m_most || owner.last == s_lastKey) {
        owner.isFull = true;
        return none;
    }
    owner.bytes += size;
    const std::uint32_t key = none | ++owner.last;
    owner.keys.emplace(text, key);
    define(key, text, now);
    return key;
}

void KeyTable::define(std::uint32_t key, std::string_view text, Time now) {
    m_definitions.push_back({key, std::string(text)});
    m_bytes += layout::sizeOf(text.size());
    m_ring.write(now, {.kind = EKind::Define, .key = key, .texts = {text}});
}

void KeyTable::sayAgain(Time now) {
    const std::uint64_t head = m_ring.head(ERing::Audit);
    if (head - m_saidAt < m_ring.size(ERing::Audit) / 4)
        return;
    m_saidAt = head;
    for (std::size_t begin = 0;; begin += s_batch) {
        const std::shared_lock lock(m_mutex);
        const std::size_t end = std::min(begin + s_batch, m_definitions.size());
        for (std::size_t i = begin; i < end; ++i) {
            const Definition& definition = m_definitions[i];
            m_ring.write(now, {.kind = EKind::Define, .key = definition.key, .texts = {definition.text}});
        }
        if (end == m_definitions.size())
            return;
    }
}

std::uint16_t KeyTable::drivers() const {
    const std::shared_lock lock(m_mutex);
    return static_cast<std::uint16_t>(m_drivers.size());
}

KeyNames KeyTable::names() const {
    KeyNames names;
    const std::shared_lock lock(m_mutex);
    for (const Definition& definition : m_definitions)
        names.define(definition.key, definition.text);
    return names;
}

bool KeyTable::isFull(std::uint16_t driver) const {
    const std::shared_lock lock(m_mutex);
    return driver < m_drivers.size() && m_drivers[driver].isFull;
}

}  // namespace stream
