#include "SegmentWriter.h"

#include <fcntl.h>
#include <unistd.h>
#include <zstd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Crc32c.h"
#include "FileReplacement.h"
#include "Printable.h"
#include "RegularFile.h"
#include "StreamBody.h"

namespace stream {
namespace {

/// Quick: a second's records are packed in some ms.
constexpr int s_level = 3;

}  // namespace

void SegmentWriter::FreeContext::operator()(ZSTD_CCtx_s* pContext) const {
    ZSTD_freeCCtx(pContext);
}

std::unique_ptr<SegmentWriter> SegmentWriter::create(const std::string& path, std::string instance,
                                                     std::string& error) {
    base::UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_APPEND, 0600));
    if (!file) {
        error = base::quoted(path) + " cannot be made: " + std::strerror(errno);
        return nullptr;
    }
    error = base::syncDirectoryOf(path);
    if (!error.empty()) {
        // Else its name would be in the way of the next try.
        ::unlink(path.c_str());
        return nullptr;
    }
    return std::unique_ptr<SegmentWriter>(new SegmentWriter(path, std::move(instance), std::move(file)));
}

SegmentWriter::SegmentWriter(std::string path, std::string instance, base::UniqueFd file)
    : m_path(std::move(path)),
      m_instance(std::move(instance)),
      m_file(std::move(file)),
      m_pContext(ZSTD_createCCtx()) {
    clear();
}

SegmentWriter::~SegmentWriter() = default;

void SegmentWriter::clear() {
    m_definitions.clear();
    m_words.clear();
    m_defined.clear();
    m_size = 0;
    m_records = 0;
    m_head = FrameHead();
    m_instance.copy(m_head.instance.data(), m_head.instance.size());
}

void SegmentWriter::put(std::vector<std::uint64_t>& words, const StreamRecord& record) {
    const StreamEntry entry{.kind = record.kind,
                            .key = record.key,
                            .value = record.value,
                            .cause = record.cause,
                            .keyText = record.keyText,
                            .texts = {record.text}};
    std::uint64_t body[layout::s_longestBodyWords];
    const StreamBody packed = StreamBody::pack(entry, body);
    const std::uint64_t flags = packed.flags | (record.isCut ? layout::s_isCut : 0);
    words.insert(words.end(), {0, layout::timeAndKind(record.time, record.kind),
                               layout::numberLengthFlags(record.number, packed.length, flags),
                               layout::keyAndValue(record.key, record.value)});
    words.insert(words.end(), body, body + packed.words());
    m_size += (layout::s_headWords + packed.words()) * sizeof(std::uint64_t);
}

void SegmentWriter::define(std::uint32_t key, const KeyNames& names) {
    const std::string* const pText = names.find(key);
    if (!pText || !m_defined.insert(key).second)
        return;
    StreamRecord definition;
    definition.kind = EKind::Define;
    definition.key = key;
    definition.text = *pText;
    put(m_definitions, definition);
}

void SegmentWriter::add(const StreamRecord& record, const KeyNames& names) {
    define(record.key & 0xffff0000u, names);
    define(record.key, names);
    if (record.kind == EKind::Fid)
        define(record.value << 16, names);
    if (m_records++ == 0) {
        m_head.firstNumber = record.number;
        m_head.firstTime = record.time.time_since_epoch().count();
    }
    m_head.lastNumber = record.number;
    m_head.lastTime = record.time.time_since_epoch().count();
    put(m_words, record);
}

std::string SegmentWriter::writeFrame() {
    if (m_records == 0)
        return {};
    m_definitions.insert(m_definitions.end(), m_words.begin(), m_words.end());
    const std::size_t size = m_definitions.size() * sizeof(std::uint64_t);
    std::string frame(sizeof(FrameHead) + ZSTD_compressBound(size), '\0');
    const std::size_t packed =
        ZSTD_compressCCtx(m_pContext.get(), frame.data() + sizeof(FrameHead),
                          frame.size() - sizeof(FrameHead), m_definitions.data(), size, s_level);
    FrameHead head = m_head;
    head.records = static_cast<std::uint32_t>(m_records);
    clear();
    if (ZSTD_isError(packed) != 0)
        return base::quoted(m_path) + ": a second's records cannot be packed: " + ZSTD_getErrorName(packed);
    frame.resize(sizeof(FrameHead) + packed);
    head.size = static_cast<std::uint32_t>(size);
    head.packedSize = static_cast<std::uint32_t>(packed);
    head.packedCheck = crc32c(0, frame.data() + sizeof(FrameHead), packed);
    head.check = crc32c(0, reinterpret_cast<const char*>(&head), sizeof head - sizeof head.check);
    std::memcpy(frame.data(), &head, sizeof head);
    if (!base::writeAll(m_file.get(), frame)) {
        const int code = errno;
        static_cast<void>(::ftruncate(m_file.get(), static_cast<off_t>(m_written)));
        return base::quoted(m_path) + " cannot be written: " + std::strerror(code);
    }
    m_written += frame.size();
    return {};
}

std::string SegmentWriter::sync() {
    if (::fdatasync(m_file.get()) == 0)
        return {};
    return base::quoted(m_path) + " cannot be synced: " + std::strerror(errno);
}

}  // namespace stream
