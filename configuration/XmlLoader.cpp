#include "XmlLoader.h"

#include <tinyxml.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>

namespace {

struct Close {
    void operator()(std::FILE* pFile) const { std::fclose(pFile); }
};

/// The library names no line for markup that the end of the file cuts off.
int lastLine(const std::string& bytes) {
    return 1 + static_cast<int>(std::count(bytes.begin(), bytes.end(), '\n'));
}

}  // namespace

XmlFault loadXml(TiXmlDocument& document, const std::string& bytes) {
    // A stream that is only read never writes to its memory.
    const std::unique_ptr<std::FILE, Close> pStream(
        ::fmemopen(const_cast<char*>(bytes.data()), bytes.size(), "rb"));
    if (!pStream)
        return {0, std::string("cannot be read: ") + std::strerror(errno)};
    try {
        if (document.LoadFile(pStream.get()))
            return {};
    } catch (const std::exception&) {
        return {0, "cannot be read"};
    }
    std::string text = document.ErrorDesc();
    while (text.ends_with('.'))
        text.pop_back();
    const int error = document.ErrorId();
    if (error == TiXmlBase::TIXML_ERROR_OPENING_FILE || error == TiXmlBase::TIXML_ERROR_DOCUMENT_EMPTY)
        return {0, "cannot be read: " + text};
    return {document.ErrorRow() > 0 ? document.ErrorRow() : lastLine(bytes), text};
}
