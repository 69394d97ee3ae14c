#include "McapWriter.h"

#include <algorithm>

#include "Crc32.h"

namespace {

/// The kinds of records that are written, as the format numbers them.
enum class EOpcode : std::uint8_t {
    Header = 0x01,
    Footer = 0x02,
    Schema = 0x03,
    Channel = 0x04,
    Message = 0x05,
    Chunk = 0x06,
    MessageIndex = 0x07,
    ChunkIndex = 0x08,
    Statistics = 0x0b,
    SummaryOffset = 0x0e,
    DataEnd = 0x0f,
};

constexpr std::string_view s_magic("\x89MCAP0\r\n", 8);

/// Integers are little-endian, texts and lists have their length in bytes before them.
template <class Integer>
void putInteger(std::string& bytes, Integer value) {
    for (std::size_t i = 0; i < sizeof value; ++i)
        bytes += static_cast<char>(static_cast<std::uint64_t>(value) >> 8 * i & 0xffu);
}

void putText(std::string& bytes, std::string_view text) {
    putInteger(bytes, static_cast<std::uint32_t>(text.size()));
    bytes += text;
}

void putRecord(std::string& bytes, EOpcode opcode, std::string_view content) {
    bytes += static_cast<char>(opcode);
    putInteger(bytes, static_cast<std::uint64_t>(content.size()));
    bytes += content;
}

std::string recordOf(EOpcode opcode, std::string_view content) {
    std::string bytes;
    putRecord(bytes, opcode, content);
    return bytes;
}

}  // namespace

McapWriter::McapWriter(Take take, std::string_view library) : m_take(std::move(take)) {
    std::string header;
    putText(header, "");
    putText(header, library);
    put(s_magic);
    put(recordOf(EOpcode::Header, header));
}

void McapWriter::put(std::string_view bytes) {
    m_take(bytes);
    m_size += bytes.size();
}

std::uint16_t McapWriter::addSchema(std::string_view name, std::string_view encoding, std::string_view data) {
    // 0 is no schema.
    const auto number = static_cast<std::uint16_t>(m_schemas.size() + 1);
    std::string content;
    putInteger(content, number);
    putText(content, name);
    putText(content, encoding);
    putText(content, data);
    m_schemas.push_back(recordOf(EOpcode::Schema, content));
    m_chunk.bytes += m_schemas.back();
    return number;
}

std::uint16_t McapWriter::addChannel(std::uint16_t schema, std::string_view topic,
                                     std::string_view encoding) {
    const auto number = static_cast<std::uint16_t>(m_channels.size());
    std::string content;
    putInteger(content, number);
    putInteger(content, schema);
    putText(content, topic);
    putText(content, encoding);
    putText(content, "");  // no further properties
    m_channels.push_back(recordOf(EOpcode::Channel, content));
    m_chunk.bytes += m_channels.back();
    return number;
}

void McapWriter::addMessage(std::uint16_t channel, std::uint32_t sequence, std::uint64_t time,
                            std::string_view data) {
    std::string content;
    putInteger(content, channel);
    putInteger(content, sequence);
    putInteger(content, time);  // when it was recorded
    putInteger(content, time);  // when it was sent
    content += data;
    const bool isFirst = m_chunk.places.empty();
    m_chunk.first = isFirst ? time : std::min(m_chunk.first, time);
    m_chunk.last = isFirst ? time : std::max(m_chunk.last, time);
    m_chunk.places[channel].emplace_back(time, m_chunk.bytes.size());
    putRecord(m_chunk.bytes, EOpcode::Message, content);
    ++m_counts[channel];
    m_first = m_messages == 0 ? time : std::min(m_first, time);
    m_last = m_messages == 0 ? time : std::max(m_last, time);
    ++m_messages;
    if (m_chunk.bytes.size() >= s_chunkSize)
        writeChunk();
}

void McapWriter::writeChunk() {
    std::string content;
    putInteger(content, m_chunk.first);
    putInteger(content, m_chunk.last);
    putInteger(content, static_cast<std::uint64_t>(m_chunk.bytes.size()));
    putInteger(content, crc32(m_chunk.bytes));
    putText(content, "");  // not compressed
    putInteger(content, static_cast<std::uint64_t>(m_chunk.bytes.size()));
    content += m_chunk.bytes;
    const std::uint64_t begin = m_size;
    put(recordOf(EOpcode::Chunk, content));
    const std::uint64_t end = m_size;

    std::string offsets;
    for (const auto& [channel, places] : m_chunk.places) {
        std::string list;
        for (const auto& [time, place] : places) {
            putInteger(list, time);
            putInteger(list, place);
        }
        putInteger(offsets, channel);
        putInteger(offsets, m_size);
        std::string index;
        putInteger(index, channel);
        putText(index, list);
        put(recordOf(EOpcode::MessageIndex, index));
    }
    std::string index;
    putInteger(index, m_chunk.first);
    putInteger(index, m_chunk.last);
    putInteger(index, begin);
    putInteger(index, end - begin);
    putText(index, offsets);
    putInteger(index, m_size - end);
    putText(index, "");  // not compressed
    putInteger(index, static_cast<std::uint64_t>(m_chunk.bytes.size()));
    putInteger(index, static_cast<std::uint64_t>(m_chunk.bytes.size()));
    m_indexes.push_back(recordOf(EOpcode::ChunkIndex, index));
    m_chunk = Chunk();
}

std::string McapWriter::statistics() const {
    std::string content;
    putInteger(content, m_messages);
    putInteger(content, static_cast<std::uint16_t>(m_schemas.size()));
    putInteger(content, static_cast<std::uint32_t>(m_channels.size()));
    putInteger(content, std::uint32_t{0});  // attachments
    putInteger(content, std::uint32_t{0});  // metadata
    putInteger(content, static_cast<std::uint32_t>(m_indexes.size()));
    putInteger(content, m_first);
    putInteger(content, m_last);
    std::string counts;
    for (const auto& [channel, count] : m_counts) {
        putInteger(counts, channel);
        putInteger(counts, count);
    }
    putText(content, counts);
    return recordOf(EOpcode::Statistics, content);
}

void McapWriter::end() {
    if (!m_chunk.bytes.empty())
        writeChunk();
    // The check of all that comes before the summary; 0: there is none, since each chunk has its own.
    put(recordOf(EOpcode::DataEnd, std::string(sizeof(std::uint32_t), '\0')));

    const std::uint64_t begin = m_size;
    std::string summary;
    std::string offsets;
    const auto addGroup = [&](EOpcode opcode, const std::vector<std::string>& records) {
        const std::uint64_t place = begin + summary.size();
        for (const std::string& record : records)
            summary += record;
        if (records.empty())
            return;
        std::string content;
        content += static_cast<char>(opcode);
        putInteger(content, place);
        putInteger(content, begin + summary.size() - place);
        putRecord(offsets, EOpcode::SummaryOffset, content);
    };
    addGroup(EOpcode::Schema, m_schemas);
    addGroup(EOpcode::Channel, m_channels);
    addGroup(EOpcode::Statistics, {statistics()});
    addGroup(EOpcode::ChunkIndex, m_indexes);

    // The footer, whose check is of the summary and of its own beginning.
    std::string footer;
    putInteger(footer, begin);
    putInteger(footer, begin + static_cast<std::uint64_t>(summary.size()));
    summary += offsets;
    summary += static_cast<char>(EOpcode::Footer);
    putInteger(summary, static_cast<std::uint64_t>(footer.size() + sizeof(std::uint32_t)));
    summary += footer;
    putInteger(summary, crc32(summary));
    put(summary);
    put(s_magic);
}
