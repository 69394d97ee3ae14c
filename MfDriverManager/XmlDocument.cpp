#include "XmlDocument.h"

#include <tinyxml.h>

#include <exception>
#include <filesystem>
#include <system_error>

bool loadXmlDocument(TiXmlDocument& document) {
    const auto failed = [&document] {
        document.SetError(TiXmlBase::TIXML_ERROR_OPENING_FILE, nullptr, nullptr, TIXML_ENCODING_UNKNOWN);
        return false;
    };
    // The library would open a directory, throw for want of memory, and leave it open.
    std::error_code none;
    if (std::filesystem::is_directory(document.Value(), none))
        return failed();
    try {
        return document.LoadFile();
    } catch (const std::exception&) {
        return failed();
    }
}
