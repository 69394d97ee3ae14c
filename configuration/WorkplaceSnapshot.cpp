#include "WorkplaceSnapshot.h"

#include "XMLVerify.h"
#include "sal/Path.h"

namespace {

std::string faultOf(const std::string& path, const XmlInput& input, std::string& signature) {
    if (path.empty())
        return {};
    return input.bytes ? XMLVerify::signatureFault(sal::Path(path), *input.bytes, signature)
                       : "the file cannot be read: " + input.error;
}

}  // namespace

WorkplaceSnapshot::WorkplaceSnapshot(const std::string& path)
    : m_path(path),
      m_input(path.empty() ? XmlInput() : XmlInput::read(path)),
      m_signatureFault(faultOf(path, m_input, m_signature)),
      m_file(m_input.finding ? std::string() : path, m_input) {}

std::string WorkplaceSnapshot::refusal(bool isSignatureRequired) const {
    if (m_input.finding)
        return m_input.finding->inWords();
    if (isSignatureRequired && !m_signatureFault.empty())
        return m_path +
               " is not signed by a trusted key, and --require-signature asks for it: " + m_signatureFault;
    return {};
}
