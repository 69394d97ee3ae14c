#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "StreamRecord.h"

/// The records that are to become the next frame of a segment, one after another as they came, and of each
/// value the last one alone. Its room is fixed, and what a flood has used of it is given back to the system.
/// Owned by Keeper; one thread.
class KeptFrame {
public:
    /// Bytes of records, a multiple of a page. Throws std::bad_alloc where there is no such memory.
    explicit KeptFrame(std::size_t room);
    KeptFrame(const KeptFrame&) = delete;
    KeptFrame& operator=(const KeptFrame&) = delete;

    /// Takes the record, in place of an older one of the same value. False, and nothing is changed, when
    /// there is no room left.
    bool add(const stream::StreamRecord& record);
    /// What the record would take, less what an older one of the same value takes.
    std::ptrdiff_t growth(const stream::StreamRecord& record) const;

    /// Gives each record, in the order in which they came; of what is gone nothing.
    template <class Take>
    void forEach(Take take) {
        for (std::size_t at = 0; at < m_used; at += sizeAt(at)) {
            if (read(at))
                take(m_record);
        }
    }

    bool isEmpty() const { return m_used == m_dead; }
    void clear();

    /// What a record takes, in bytes.
    static std::size_t sizeOf(const stream::StreamRecord& record);

private:
    struct Unmap {
        std::size_t size = 0;
        void operator()(std::uint64_t* pWords) const;
    };
    static constexpr std::uint32_t s_none = ~std::uint32_t{0};

    std::size_t sizeAt(std::size_t at) const;  ///< all of these in words
    bool read(std::size_t at);
    std::string_view keyTextAt(std::size_t at) const;
    std::size_t slotOf(std::uint32_t key, std::string_view keyText) const;
    void closeUp();
    void index(std::size_t slots);

    const std::size_t m_room;
    const std::unique_ptr<std::uint64_t[], Unmap> m_pWords;
    std::size_t m_used = 0;
    std::size_t m_dead = 0;  ///< of it, those that newer values have replaced
    /// Where the last one of each value is; a power of two of places, at most half of them taken.
    std::vector<std::uint32_t> m_values;
    std::size_t m_valueCount = 0;
    stream::StreamRecord m_record;
};
