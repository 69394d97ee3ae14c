#pragma once

#include <string>

class TiXmlDocument;

/// Reads a document for the check. Any thread.
class XmlLoader {
public:
    /// Why and where the document cannot be read; line 0 and a text that goes on behind the file's name where
    /// the file as a whole is meant. The text is empty when it was read.
    struct Fault {
        int line = 0;
        std::string text;
    };

    /// Fills the document with a file's bytes, as the library does when it reads the file itself. The bytes
    /// have passed XmlInput.
    static Fault load(TiXmlDocument& document, const std::string& bytes);
};
