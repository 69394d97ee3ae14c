#include <zstd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Crc32c.h"
#include "Expect.h"
#include "FidFields.h"
#include "KeyTable.h"
#include "SegmentLayout.h"
#include "SegmentReader.h"
#include "StreamReader.h"
#include "StreamRing.h"
#include "StreamSource.h"
#include "StreamText.h"

// Whatever became of a ring or a segment: reading it comes to its end, stays inside it, and gives numbers
// that only rise; each record can be shown as one line of text and one of JSON. The first byte of an input
// says what it is: damage done to a ring or a segment that was whole, records with right checks, or the bytes
// of a file; of a ring, also which one, and from where it is read.

namespace {

using namespace stream;

constexpr std::size_t g_ringSize = StreamRing::s_smallest;

/// Takes an input apart.
class Input {
public:
    Input(const std::uint8_t* pData, std::size_t size) : m_pData(pData), m_size(size) {}
    bool empty() const { return m_size == 0; }
    std::uint64_t number(std::size_t bytes) {
        std::uint64_t value = 0;
        const std::string_view text = this->bytes(bytes);
        std::memcpy(&value, text.data(), text.size());
        return value;
    }
    std::string_view bytes(std::size_t count) {
        count = std::min(count, m_size);
        const std::string_view text(reinterpret_cast<const char*>(m_pData), count);
        m_pData += count;
        m_size -= count;
        return text;
    }

private:
    const std::uint8_t* m_pData;
    std::size_t m_size;
};

/// A file of rings as a process left it. Each input changes it, and what it has changed is put back: the file
/// is 34 pages long, and to copy it takes longer than to read a short ring.
class RingFile {
public:
    /// With so many records of so long a text.
    RingFile(std::uint32_t records, std::size_t text) {
        std::string error;
        const auto pRing = StreamRing::create(
            {.path = {}, .sizes = {g_ringSize, g_ringSize}, .instance = "fuzz"}, Time(), error);
        expect(pRing != nullptr, "there is a ring");
        KeyTable keys(*pRing);
        const std::uint32_t key = keys.key(keys.driver("AXIS1", Time()), "POSITION", Time());
        const std::string filling(text, 't');
        for (std::uint32_t i = 0; i < records; ++i)
            pRing->write(Time(std::chrono::microseconds(i)),
                         {.kind = i % 2 == 0 ? EKind::Int : EKind::Exit,
                          .key = i % 4 == 0 ? key : 1u << 16,
                          .value = i,
                          .texts = {std::string_view(filling).substr(i % 70)}});
        m_whole.resize(pRing->fileSize() / sizeof(std::uint64_t));
        std::memcpy(m_whole.data(), pRing->base(), pRing->fileSize());
        m_words = m_whole;
    }

    std::size_t size() const { return m_whole.size(); }
    const StreamConstants& constants() const {
        return *reinterpret_cast<const StreamConstants*>(m_whole.data());
    }
    void set(std::size_t place, std::uint64_t value) {
        m_words[place] = value;
        m_changed.push_back(place);
    }
    std::span<std::uint64_t> words() { return m_words; }
    void restore() {
        for (const std::size_t place : m_changed)
            m_words[place] = m_whole[place];
        m_changed.clear();
    }

private:
    std::vector<std::uint64_t> m_whole;
    std::vector<std::uint64_t> m_words;
    std::vector<std::size_t> m_changed;
};

/// Where an input has a ring read from.
enum class EFrom : std::uint8_t { Oldest, OldestOfOne, Number, Position, NewestOfAudit };
constexpr std::size_t g_froms = 5;

/// A ring, and from where it is read: of the first byte of an input, and of the check of all of it. What the
/// check decides, inputs that are made of this one do not inherit.
struct RingCase {
    RingCase(const std::uint8_t* pData, std::size_t size) : RingCase(pData[0] / 6, check(pData, size)) {}
    RingCase(std::uint8_t how, std::uint32_t check)
        : isLong(check % 16 == 0),
          hasNames(how % 2 != 0),
          from(static_cast<EFrom>(how / 2 % g_froms)),
          place(check / 16) {}

    /// One that went several times round, of long texts: reading it takes ten times as long as the other one,
    /// which has just begun.
    bool isLong;
    /// What its numbers mean is known, and need not be found in it.
    bool hasNames;
    EFrom from;
    std::uint32_t place;  ///< where it may be anywhere

    RingFile& file() const {
        static RingFile s_short(20, 250);
        static RingFile s_long(100, layout::s_longestBody);
        return isLong ? s_long : s_short;
    }

private:
    static std::uint32_t check(const std::uint8_t* pData, std::size_t size) {
        return crc32c(0, reinterpret_cast<const char*>(pData), size);
    }
};

std::string frameOf(std::string_view payload, std::uint32_t records) {
    FrameHead head;
    static ZSTD_CCtx* const s_pPacker = ZSTD_createCCtx();
    std::string frame(sizeof head + ZSTD_compressBound(payload.size()), '\0');
    const std::size_t packed = ZSTD_compressCCtx(
        s_pPacker, frame.data() + sizeof head, frame.size() - sizeof head, payload.data(), payload.size(), 1);
    frame.resize(sizeof head + packed);
    head.instance[0] = 'i';
    head.packedSize = static_cast<std::uint32_t>(packed);
    head.size = static_cast<std::uint32_t>(payload.size());
    head.records = records;
    head.packedCheck = crc32c(0, frame.data() + sizeof head, packed);
    head.check = crc32c(0, reinterpret_cast<const char*>(&head), sizeof head - sizeof head.check);
    std::memcpy(frame.data(), &head, sizeof head);
    return frame;
}

void show(const IStreamReader& reader) {
    // Most of them are as they were made: seen once, seen often enough.
    const bool isPlain = reader.record().kind == EKind::Int || reader.record().kind == EKind::Exit;
    if (isPlain && reader.record().keyText.empty() && reader.record().number % 64 != 0)
        return;
    const std::string line = lineOf(reader.record(), reader.names());
    expect(line.find_first_of("\n\r\x1b") == std::string::npos, "a record is one line");
    std::string json;
    appendJson(json, reader.record(), reader.names());
    expect(json.front() == '{' && json.back() == '}', "a record is one object");
    expect(json.find('\n') == std::string::npos, "its JSON is one line");
    static_cast<void>(subjectOf(reader.record(), reader.names()));
}

/// Reads all of it. No file holds more than so many.
void readAll(IStreamReader& reader, std::size_t most, bool doNumbersRise) {
    std::uint64_t last = 0;
    std::size_t count = 0;
    for (;;) {
        const auto result = reader.next({});
        expect(result != IStreamReader::EResult::Nothing, "what is dead is not waited for");
        if (result == IStreamReader::EResult::End)
            break;
        expect(++count <= most, "reading comes to an end");
        if (result == IStreamReader::EResult::Gap) {
            static_cast<void>(lineOf(reader.gap()));
            continue;
        }
        expect(!doNumbersRise || reader.record().number > last, "numbers rise");
        last = reader.record().number;
        show(reader);
    }
    static_cast<void>(reader.cursor().text());
}

std::unique_ptr<StreamReader> readerOf(const StreamSource& source, const RingCase& ring) {
    std::optional<KeyNames> names;
    if (ring.hasNames)
        names.emplace();
    std::string error;
    const auto open = [&](const StreamCursor& from) {
        auto pReader = StreamReader::open(source, from, error, names);
        expect(pReader != nullptr || (from.place == StreamCursor::EPlace::Exact && !error.empty()),
               "the oldest record can be read from, and a refusal has its reason");
        return pReader;
    };
    const ERing one = ring.place % 2 == 0 ? ERing::Values : ERing::Audit;
    switch (ring.from) {
        case EFrom::Oldest:
            return open(StreamCursor::oldest());
        case EFrom::OldestOfOne:
            return open(StreamCursor::oldest(one));
        case EFrom::Number:
            return open({StreamCursor::EPlace::Exact, source.instance(), std::nullopt, ring.place % 128});
        case EFrom::Position:
            return open({StreamCursor::EPlace::Exact, source.instance(), one,
                         source.size(one) + ring.place / 2 % 256 * layout::s_alignment});
        case EFrom::NewestOfAudit:
            break;
    }
    return StreamReader::openNewest(source, ring.place % 4096, KeyNames());
}

void readRing(const RingCase& ring) {
    RingFile& file = ring.file();
    std::string error;
    if (const auto pSource = StreamSource::ofMemory(file.words(), error)) {
        if (const auto pReader = readerOf(*pSource, ring))
            readAll(*pReader, file.size(), ring.from == EFrom::Oldest || ring.from == EFrom::Number);
    } else {
        expect(!error.empty(), "a refusal has its reason");
    }
    file.restore();
}

void readSegment(std::string bytes) {
    const std::size_t most = 2 * (FrameHead::s_most / 32 + bytes.size());
    std::string error;
    const auto pReader = SegmentReader::ofBytes(std::move(bytes), error);
    if (!pReader) {
        expect(!error.empty(), "a refusal has its reason");
        return;
    }
    readAll(*pReader, most, false);
}

/// A place in the file: anywhere, or where there is something in the short one.
std::size_t placeIn(const RingCase& ring, std::uint64_t number) {
    if (ring.isLong)
        return number % ring.file().size();
    constexpr std::size_t page = s_page / sizeof(std::uint64_t);
    constexpr std::size_t words = g_ringSize / sizeof(std::uint64_t);
    switch (number % 4) {
        case 0:
            return number / 4 % (sizeof(StreamHeader) / sizeof(std::uint64_t));
        case 1:
            return page + number / 4 % page;
        case 2:
            return page + words + number / 4 % page;
        default:
            return page + 2 * words + number / 4 % (sizeof(StreamConstants) / sizeof(std::uint64_t));
    }
}

/// Places in a whole ring are given other contents.
void damageRing(const RingCase& ring, Input input) {
    RingFile& file = ring.file();
    while (!input.empty()) {
        const std::size_t place = placeIn(ring, input.number(3));
        const std::size_t length = input.number(1);
        const std::uint64_t value = input.number(8);
        for (std::size_t i = place; i < std::min(place + length, file.size()); ++i)
            file.set(i, value);
    }
    readRing(ring);
}

/// Records with any contents and right checks come into a ring.
void forgeRecords(const RingCase& ring, Input input) {
    RingFile& file = ring.file();
    const std::uint32_t salt = file.constants().salt;
    while (!input.empty()) {
        const std::uint64_t position = g_ringSize + input.number(2) % (ring.isLong ? 0x10000 : 128) * 32;
        const std::size_t index = input.number(1) % 2;
        std::uint64_t checked[4] = {position};
        for (std::size_t i = 1; i < 4; ++i)
            checked[i] = input.number(8);
        const std::string_view text = input.bytes(layout::lengthOf(checked[2]));
        std::vector<std::uint64_t> body((layout::lengthOf(checked[2]) + 7) / 8);
        if (!text.empty())
            std::memcpy(body.data(), text.data(), text.size());
        const std::uint32_t check = crc32c(crc32c(salt, checked, 4), body.data(), body.size());
        checked[0] = static_cast<std::uint64_t>(check) << 32 | static_cast<std::uint32_t>(position / 32);
        body.insert(body.begin(), checked, checked + 4);
        for (std::size_t i = 0; i < body.size(); ++i) {
            const std::size_t at = (position / 8 + i) % (g_ringSize / 8);
            file.set((s_page + index * g_ringSize) / 8 + at, body[i]);
        }
    }
    readRing(ring);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    Input input(data + 1, size - 1);
    switch (data[0] % 6) {
        case 0:
            damageRing(RingCase(data, size), input);
            break;
        case 1:
            forgeRecords(RingCase(data, size), input);
            break;
        case 2:
            readSegment(std::string(input.bytes(size)));
            break;
        case 3: {
            // A frame whose records are of any form, between two that are whole.
            const auto records = static_cast<std::uint32_t>(input.number(1));
            std::string payload(input.bytes(size));
            payload.resize(payload.size() / 8 * 8);
            readSegment(frameOf({}, 0) + frameOf(payload, records) + frameOf({}, 0));
            break;
        }
        case 4: {
            std::string bytes = frameOf(std::string(64, '\0'), 2) + frameOf(std::string(96, '\1'), 3);
            while (!input.empty()) {
                const std::size_t place = input.number(2) % bytes.size();
                bytes[place] = static_cast<char>(input.number(1));
            }
            readSegment(std::move(bytes));
            break;
        }
        default: {
            const std::string_view bytes = input.bytes(size);
            const auto fid = FidFields::parse(bytes);
            const auto masked =
                FidFields::masked(bytes, [](std::string_view name) { return name.size() % 2 == 0; });
            const auto shown = FidFields::parse(masked.bytes());
            expect(masked.isCut() || shown.parameters.size() >= fid.parameters.size(),
                   "masking keeps each parameter");
            for (const auto& [name, value] : shown.parameters)
                expect(name.size() % 2 != 0 || value == FidFields::s_mask, "no secret is shown");
        }
    }
    return 0;
}
