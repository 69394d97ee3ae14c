#include "WorkplaceSnapshot.h"

#include "XMLVerify.h"
#include "sal/Path.h"

namespace {

std::string faultOf(const std::string& path, const FileGuard::Reading& reading) {
    if (path.empty())
        return {};
    return reading.bytes ? XMLVerify::signatureFault(sal::Path(path), *reading.bytes)
                         : "the file cannot be read: " + reading.error;
}

}  // namespace

WorkplaceSnapshot::WorkplaceSnapshot(const std::string& path)
    : m_path(path),
      m_reading(path.empty() ? FileGuard::Reading() : FileGuard::read(path)),
      m_signatureFault(faultOf(path, m_reading)),
      m_file(m_reading.finding ? std::string() : path, m_reading) {}

std::string WorkplaceSnapshot::refusal(bool isSignatureRequired) const {
    if (m_reading.finding)
        return m_reading.finding->inWords();
    if (isSignatureRequired && !m_signatureFault.empty())
        return m_path +
               " is not signed by a trusted key, and --require-signature asks for it: " + m_signatureFault;
    return {};
}
