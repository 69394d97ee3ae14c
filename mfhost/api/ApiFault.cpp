#include "ApiFault.h"

#include <array>
#include <cstddef>
#include <utility>

#include "JsonText.h"

namespace {

struct Code {
    const char* word;
    unsigned status;
};

/// In the order of the enumerators.
constexpr std::array<Code, static_cast<std::size_t>(ApiFault::ECode::Internal) + 1> s_codes{{
    {"request-invalid", 400},
    {"session-needed", 401},
    {"not-allowed", 403},
    {"not-found", 404},
    {"driver-unknown", 404},
    {"macro-unknown", 404},
    {"state-unknown", 404},
    {"alarm-unknown", 404},
    {"method-not-allowed", 405},
    {"request-invalid", 408},
    {"fid-undelivered", 409},
    {"plan-outdated", 409},
    {"refused", 409},
    {"request-differs", 409},
    {"too-large", 413},
    {"media-type", 415},
    {"host-unknown", 421},
    {"too-many", 429},
    {"queue-full", 503},
    {"busy", 503},
    {"stopping", 503},
    {"internal", 500},
}};

}  // namespace

ApiFault::ApiFault(ECode code, std::string text, std::vector<std::string> nearest)
    : m_code(code), m_text(std::move(text)), m_nearest(std::move(nearest)) {}

ApiFault ApiFault::invalid(std::string text) {
    return {ECode::RequestInvalid, std::move(text)};
}

ApiFault& ApiFault::withReason(std::string reason) {
    m_reason = std::move(reason);
    return *this;
}

ApiFault& ApiFault::withAllow(std::string methods) {
    m_allow = std::move(methods);
    return *this;
}

ApiAnswer ApiFault::answer() const {
    const Code& code = s_codes.at(static_cast<std::size_t>(m_code));
    JsonText json;
    json.beginObject().name("error").beginObject();
    json.member("code", code.word).member("text", m_text);
    if (!m_reason.empty())
        json.member("reason", m_reason);
    json.name("nearest").beginArray();
    for (const std::string& name : m_nearest)
        json.value(name);
    json.endArray().endObject().endObject();
    return {.status = code.status, .body = json.take(), .allow = m_allow};
}

bool ApiFault::isUndone(unsigned status) {
    return status == 400 || status == 429 || status == 503;
}
