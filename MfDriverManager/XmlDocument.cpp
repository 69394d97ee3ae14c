#include "XmlDocument.h"

#include <tinyxml.h>

#include <exception>

bool loadXmlDocument(TiXmlDocument& document) {
    try {
        return document.LoadFile();
    } catch (const std::exception&) {
        document.SetError(TiXmlBase::TIXML_ERROR_OPENING_FILE, nullptr, nullptr, TIXML_ENCODING_UNKNOWN);
        return false;
    }
}
