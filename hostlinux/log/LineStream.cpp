#include "LineStream.h"

#include <algorithm>
#include <utility>

#include "Printable.h"

namespace sal {
namespace {

constexpr std::size_t s_longestLine = 64u << 10;

}  // namespace

LineStream::Buffer::Buffer(std::ostream& stream, std::weak_ptr<LogCore> pCore, const std::string& output,
                           int level)
    : m_stream(stream), m_pCore(std::move(pCore)), m_output(base::printable(output)), m_level(level) {}

LineStream::Buffer::int_type LineStream::Buffer::overflow(int_type c) {
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
        const char character = traits_type::to_char_type(c);
        xsputn(&character, 1);
    }
    return traits_type::not_eof(c);
}

std::streamsize LineStream::Buffer::xsputn(const char* text, std::streamsize size) {
    // The end of a line that is too long still has to be seen, so its last character is kept up to date.
    const auto wanted = static_cast<std::size_t>(size);
    const std::size_t taken = std::min(wanted, s_longestLine - std::min(m_text.size(), s_longestLine));
    m_text.append(text, taken);
    if (taken < wanted)
        m_text.back() = text[wanted - 1];
    return size;
}

int LineStream::Buffer::sync() {
    if (m_text.empty() || m_text.back() != '\n')
        return 0;
    m_text.pop_back();
    handOver();
    m_stream.flags(std::ios_base::skipws | std::ios_base::dec);
    m_stream.precision(6);
    m_stream.fill(' ');
    m_stream.width(0);
    return 0;
}

void LineStream::Buffer::handOverRest() {
    if (!m_text.empty())
        handOver();
}

void LineStream::Buffer::handOver() {
    const std::string text = std::exchange(m_text, std::string());
    if (const auto pCore = m_pCore.lock())
        pCore->write(m_output, m_level, base::printable(text));
}

LineStream::LineStream(std::weak_ptr<LogCore> pCore, const std::string& output, int level)
    : std::ostream(nullptr), m_buffer(*this, std::move(pCore), output, level) {
    rdbuf(&m_buffer);
}

LineStream::~LineStream() {
    flush();
    m_buffer.handOverRest();
}

}  // namespace sal
