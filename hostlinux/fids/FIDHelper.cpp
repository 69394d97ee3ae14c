#include "FIDHelper.h"

FIDHelper::FIDHelper(const std::string& fid) : m_fid(fid), m_dot(fid.find('.')) {}

bool FIDHelper::hasFunction() const {
    return m_dot != std::string::npos;
}

std::string FIDHelper::getDriverID() const {
    return m_fid.substr(0, m_dot);
}

std::string FIDHelper::getFunction() const {
    return hasFunction() ? m_fid.substr(m_dot + 1) : std::string();
}
