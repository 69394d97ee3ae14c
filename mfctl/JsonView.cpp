#include "JsonView.h"

#include <cmath>

namespace {
const JsonView::Json s_null;
}

bool JsonView::has(const char* name) const {
    return m_pValue->is_object() && m_pValue->contains(name) && !(*m_pValue)[name].is_null();
}

JsonView JsonView::member(const char* name) const {
    return JsonView(has(name) ? (*m_pValue)[name] : s_null);
}

std::vector<JsonView> JsonView::list(const char* name) const {
    return member(name).list();
}

std::vector<JsonView> JsonView::list() const {
    std::vector<JsonView> views;
    if (!m_pValue->is_array())
        return views;
    for (const Json& value : *m_pValue)
        views.emplace_back(value);
    return views;
}

std::string JsonView::text() const {
    if (m_pValue->is_string())
        return m_pValue->get<std::string>();
    if (m_pValue->is_number() || m_pValue->is_boolean())
        return m_pValue->dump();
    return {};
}

std::int64_t JsonView::number(const char* name) const {
    const Json& value = *member(name).m_pValue;
    if (value.is_number_integer())
        return value.get<std::int64_t>();
    // Beyond it a double is no number of this type.
    constexpr double largest = 9e18;
    if (value.is_number_float() && std::abs(value.get<double>()) < largest)
        return std::llround(value.get<double>());
    return 0;
}

std::string JsonView::json() const {
    return m_pValue->dump(-1, ' ', false, Json::error_handler_t::replace);
}

bool JsonView::flag(const char* name) const {
    const Json& value = *member(name).m_pValue;
    return value.is_boolean() && value.get<bool>();
}
