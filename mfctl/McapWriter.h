#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Writes a file of the MCAP format, version 0: messages of channels in chunks that are checked and not
/// compressed, with an index of each, and a summary with statistics. One thread.
class McapWriter {
public:
    /// Takes the next bytes of the file; throws where it cannot.
    using Take = std::function<void(std::string_view bytes)>;
    /// The first bytes are written at once. The library is the name of the program that writes.
    McapWriter(Take take, std::string_view library);

    /// What the messages of channels are like. Its number.
    std::uint16_t addSchema(std::string_view name, std::string_view encoding, std::string_view data);
    /// Its number. There are at most 65535.
    std::uint16_t addChannel(std::uint16_t schema, std::string_view topic, std::string_view encoding);
    /// The time is in nanoseconds since 1970, the sequence the sender's own number.
    void addMessage(std::uint16_t channel, std::uint32_t sequence, std::uint64_t time, std::string_view data);
    /// Writes what is left, and the summary. Nothing comes after it.
    void end();

    std::size_t channels() const { return m_channels.size(); }

private:
    struct Chunk {
        std::string bytes;
        /// By channel: time and place in the chunk of each message.
        std::map<std::uint16_t, std::vector<std::pair<std::uint64_t, std::uint64_t>>> places;
        std::uint64_t first = 0;
        std::uint64_t last = 0;
    };
    /// A chunk is written when it has become so large.
    static constexpr std::size_t s_chunkSize = std::size_t{1} << 20;

    void put(std::string_view bytes);
    void writeChunk();
    std::string statistics() const;

    const Take m_take;
    std::uint64_t m_size = 0;  ///< of the file so far
    Chunk m_chunk;
    std::vector<std::string> m_schemas;   ///< as records
    std::vector<std::string> m_channels;  ///< as records
    std::vector<std::string> m_indexes;   ///< of the chunks, as records
    std::map<std::uint16_t, std::uint64_t> m_counts;
    std::uint64_t m_messages = 0;
    std::uint64_t m_first = 0;
    std::uint64_t m_last = 0;
};
