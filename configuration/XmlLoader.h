#pragma once

#include <string>

class TiXmlDocument;

/// Why and where a document cannot be read; line 0 and a text that follows the file's name where the file as
/// a whole is meant. The text is empty when it was read.
struct XmlFault {
    int line = 0;
    std::string text;
};

/// Fills the document with a file's bytes, as the XML library does when it reads the file itself. The bytes
/// have passed XmlInput. Any thread.
XmlFault loadXml(TiXmlDocument& document, const std::string& bytes);
