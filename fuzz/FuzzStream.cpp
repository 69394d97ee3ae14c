#include <zstd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Crc32c.h"
#include "Expect.h"
#include "FidFields.h"
#include "SegmentLayout.h"
#include "SegmentReader.h"
#include "StreamReader.h"
#include "StreamRing.h"
#include "StreamSource.h"
#include "StreamText.h"

// Whatever became of a ring or a segment: reading it comes to its end, stays inside it, and gives numbers
// that only rise; each record can be shown as one line of text and one of JSON. The first byte of an input
// says what it is: damage done to a ring or a segment that was whole, records with right checks, or the bytes
// of a file.

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

/// A file of rings that went once round, as a process left it.
const std::vector<std::uint64_t>& wholeRing() {
    static const std::vector<std::uint64_t> s_words = [] {
        std::string error;
        const auto pRing = StreamRing::create(
            {.path = {}, .sizes = {g_ringSize, g_ringSize}, .instance = "fuzz"}, Time(), error);
        expect(pRing != nullptr, "there is a ring");
        // Of long texts: each input reads the whole rings, and few records are read in less time.
        for (std::uint32_t i = 0; i < 800; ++i) {
            const std::string text(250 + i % 70, 't');
            pRing->write(Time(std::chrono::microseconds(i)), {.kind = i % 2 == 0 ? EKind::Int : EKind::Exit,
                                                              .key = 1u << 16,
                                                              .value = i,
                                                              .texts = {text}});
        }
        std::vector<std::uint64_t> words(pRing->fileSize() / sizeof(std::uint64_t));
        std::memcpy(words.data(), pRing->base(), pRing->fileSize());
        return words;
    }();
    return s_words;
}

std::string frameOf(std::string_view payload, std::uint32_t records) {
    FrameHead head;
    std::string frame(sizeof head + ZSTD_compressBound(payload.size()), '\0');
    const std::size_t packed = ZSTD_compress(frame.data() + sizeof head, frame.size() - sizeof head,
                                             payload.data(), payload.size(), 1);
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

void readRing(std::vector<std::uint64_t> words) {
    const std::size_t most = words.size();
    std::string error;
    const auto pSource = StreamSource::ofBytes(std::move(words), error);
    if (!pSource) {
        expect(!error.empty(), "a refusal has its reason");
        return;
    }
    for (const auto& from : {StreamCursor::oldest(), StreamCursor::oldest(ERing::Audit)}) {
        const auto pReader = StreamReader::open(*pSource, from, error);
        expect(pReader != nullptr, "the oldest record can be read from");
        readAll(*pReader, most, !from.ring);
    }
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

/// Places in a whole ring are given other contents.
void damageRing(Input input) {
    std::vector<std::uint64_t> words = wholeRing();
    while (!input.empty()) {
        const std::size_t place = input.number(3) % words.size();
        const std::size_t length = input.number(1);
        const std::uint64_t value = input.number(8);
        for (std::size_t i = place; i < std::min(place + length, words.size()); ++i)
            words[i] = value;
    }
    readRing(std::move(words));
}

/// Records with any contents and right checks come into a ring.
void forgeRecords(Input input) {
    std::vector<std::uint64_t> words = wholeRing();
    StreamConstants constants;
    std::memcpy(&constants, reinterpret_cast<const char*>(words.data()), sizeof constants);
    while (!input.empty()) {
        const std::uint64_t position = g_ringSize + input.number(2) * 32;
        const std::size_t ring = input.number(1) % 2;
        std::uint64_t checked[4] = {position};
        for (std::size_t i = 1; i < 4; ++i)
            checked[i] = input.number(8);
        const std::string_view text = input.bytes(layout::lengthOf(checked[2]));
        std::vector<std::uint64_t> body((layout::lengthOf(checked[2]) + 7) / 8);
        if (!text.empty())
            std::memcpy(body.data(), text.data(), text.size());
        const std::uint32_t check = crc32c(crc32c(constants.salt, checked, 4), body.data(), body.size());
        checked[0] = static_cast<std::uint64_t>(check) << 32 | static_cast<std::uint32_t>(position / 32);
        body.insert(body.begin(), checked, checked + 4);
        for (std::size_t i = 0; i < body.size(); ++i) {
            const std::size_t at = (position / 8 + i) % (g_ringSize / 8);
            words[(s_page + ring * g_ringSize) / 8 + at] = body[i];
        }
    }
    readRing(std::move(words));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    Input input(data + 1, size - 1);
    switch (data[0] % 6) {
        case 0:
            damageRing(input);
            break;
        case 1:
            forgeRecords(input);
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
