#pragma once

#include <map>
#include <string>
#include <vector>

class TiXmlElement;

/// What may be in an element of a file.
struct XmlFormat {
    std::vector<std::string> attributes;
    /// By name; null for one of which nothing is read.
    std::map<std::string, const XmlFormat*> elements;
    /// Another element ends the reading of the file, and whoever reads it says so.
    bool endsAtOthers = false;

    static const XmlFormat& workplaces();  ///< the root of a workplace file
    static const XmlFormat& descriptor();  ///< the root of a descriptor
};

/// A part of a file that is passed over when it is read, and that was most likely meant to be read.
struct UnreadPart {
    int line = 0;
    std::string text;  ///< what it is, and the name that was probably meant
};

/// The attributes and elements in this element, and in those of the format, that the format does not have.
/// What belongs to another namespace ("x:note", "xmlns") is not meant for us. In the order of the file, but
/// for an element all its attributes first. Any thread.
std::vector<UnreadPart> unreadParts(const TiXmlElement& element, const XmlFormat& format);
