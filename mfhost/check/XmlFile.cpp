#include "XmlFile.h"

#include <tinyxml.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>

namespace {

/// The library names no line for markup that the end of the file cuts off.
int lastLine(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return 1 + static_cast<int>(
                   std::count(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>(), '\n'));
}

}  // namespace

XmlFile::Fault XmlFile::load(TiXmlDocument& document) {
    const char* path = document.Value();
    if (::access(path, R_OK) != 0)
        return {0, std::string("cannot be read: ") + std::strerror(errno)};
    try {
        if (document.LoadFile())
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
    return {document.ErrorRow() > 0 ? document.ErrorRow() : lastLine(path), text};
}
