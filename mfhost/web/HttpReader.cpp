#include "HttpReader.h"

#include <boost/asio/buffer.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/rfc7230.hpp>
#include <boost/beast/http/string_body.hpp>
#include <string>
#include <string_view>
#include <utility>

namespace http = boost::beast::http;
using ECode = ApiFault::ECode;

namespace {

/// What at least comes at the end of a body in chunks: "0" and two empty lines. The parser asks for as much
/// when it is to look at the last chunk again.
constexpr std::size_t s_shortestEnd = 5;

/// Of "gzip;q=0" nobody means to get it so.
bool takesGzip(std::string_view accepted) {
    for (const auto& [name, parameters] : http::ext_list(accepted)) {
        if (!boost::beast::iequals(name, "gzip"))
            continue;
        for (const auto& [parameter, value] : parameters) {
            if (boost::beast::iequals(parameter, "q") && value.find_first_not_of("0.") == value.npos)
                return false;
        }
        return true;
    }
    return false;
}

}  // namespace

struct HttpReader::Parser : http::request_parser<http::string_body> {};

HttpReader::HttpReader(const HttpLimits& limits) : m_limits(limits) {}

HttpReader::~HttpReader() = default;

std::size_t HttpReader::read(std::string_view bytes) {
    std::size_t used = 0;
    if (m_state == EState::Between) {
        // Some clients end a body with an empty line more than it has.
        while (used < bytes.size() && (bytes[used] == '\r' || bytes[used] == '\n'))
            ++used;
        if (used == bytes.size())
            return used;
        m_pParser = std::make_unique<Parser>();
        m_pParser->header_limit(static_cast<std::uint32_t>(m_limits.header));
        m_pParser->body_limit(m_limits.body);
        m_headerSize = 0;
        m_state = EState::Header;
    }
    if (m_state == EState::Header || m_state == EState::Body)
        used += parse(bytes.substr(used));
    return used;
}

std::size_t HttpReader::parse(std::string_view bytes) {
    std::size_t used = 0;
    boost::system::error_code error;
    // Not eager, a call ends with the first lines at the latest, so that these are counted.
    std::size_t count = 1;
    while (count > 0 && used < bytes.size() && !error && !m_pParser->is_done()) {
        const bool isHeader = !m_pParser->is_header_done();
        if (!isHeader && m_pParser->chunked() && bytes.size() - used < s_shortestEnd)
            break;
        count = m_pParser->put(boost::asio::buffer(bytes.data() + used, bytes.size() - used), error);
        used += count;
        if (isHeader)
            m_headerSize += count;
    }
    const std::size_t rest = bytes.size() - used;
    const bool isHeaderDone = m_pParser->is_header_done();
    // A line within a chunked body counts as those of the header do.
    if (m_headerSize + (isHeaderDone ? 0 : rest) > m_limits.header ||
        (error == http::error::need_more && rest > m_limits.header))
        error = http::error::header_limit;
    if (m_state == EState::Header && isHeaderDone && error != http::error::header_limit) {
        m_state = EState::Body;
        checkHeader();
        if (m_state == EState::Failed)
            return used;
    }
    if (error == http::error::header_limit)
        fail({ECode::TooLarge,
              "the request's first lines have more than " + std::to_string(m_limits.header) + " bytes"});
    else if (error == http::error::body_limit)
        fail({ECode::TooLarge,
              "the request's body has more than " + std::to_string(m_limits.body) + " bytes"});
    else if (error && error != http::error::need_more)
        fail({ECode::RequestInvalid, "this is no HTTP request: " + error.message()});
    else if (m_pParser->is_done())
        m_state = EState::Complete;
    return used;
}

void HttpReader::checkHeader() {
    const auto& request = m_pParser->get();
    if (request.target().size() > m_limits.target)
        fail({ECode::TooLarge,
              "the request's target has more than " + std::to_string(m_limits.target) + " bytes"});
    else if (request.version() != 10 && request.version() != 11)
        fail({ECode::RequestInvalid, "only HTTP/1.0 and HTTP/1.1 are spoken here"});
    // Which of them counts, others may see otherwise.
    else if (request.count(http::field::host) > 1)
        fail({ECode::RequestInvalid, "the request names its host more than once"});
    else if (request.count(http::field::origin) > 1 || request.count(http::field::authorization) > 1)
        fail({ECode::RequestInvalid, "the request says more than once who asks"});
    // Where another body ends, or what it is, cannot be told.
    else if (const auto codings = request.count(http::field::transfer_encoding);
             codings > 1 ||
             (codings == 1 && !boost::beast::iequals(request[http::field::transfer_encoding], "chunked")))
        fail({ECode::RequestInvalid, "the only transfer encoding that is taken is \"chunked\""});
}

bool HttpReader::expectsContinue() const {
    return m_state == EState::Body && m_pParser->get().version() == 11 &&
           boost::beast::iequals(m_pParser->get()[http::field::expect], "100-continue");
}

HttpRequest HttpReader::take() {
    auto message = m_pParser->release();
    m_pParser.reset();
    m_state = EState::Between;
    const auto field = [&message](http::field name) { return std::string(message[name]); };
    const auto lists = [&message](http::field name, const char* pWord) {
        return http::token_list(message[name]).exists(pWord);
    };
    return {.method = std::string(message.method_string()),
            .target = std::string(message.target()),
            .contentType = field(http::field::content_type),
            .body = std::move(message.body()),
            .host = field(http::field::host),
            .origin = field(http::field::origin),
            .authorization = field(http::field::authorization),
            .cookie = field(http::field::cookie),
            .knownTag = field(http::field::if_none_match),
            .takesGzip = takesGzip(message[http::field::accept_encoding]),
            .isWebSocket = message.version() == 11 && lists(http::field::connection, "upgrade") &&
                           lists(http::field::upgrade, "websocket") &&
                           message[http::field::sec_websocket_version] == "13" &&
                           !message[http::field::sec_websocket_key].empty(),
            .webSocketKey = field(http::field::sec_websocket_key),
            .isKeptAlive = message.keep_alive(),
            .isVersion10 = message.version() == 10};
}

void HttpReader::fail(const ApiFault& fault) {
    m_pParser.reset();
    m_state = EState::Failed;
    m_fault = fault.answer();
}
