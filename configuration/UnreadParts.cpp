#include "UnreadParts.h"

#include <tinyxml.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <string_view>

#include "Nearest.h"
#include "Printable.h"

namespace {

/// A part of a name that is taken for an abbreviation of it.
constexpr std::size_t s_shortestPart = 3;

bool isForeign(std::string_view name) {
    return name == "xmlns" || name.find(':') != std::string_view::npos;
}

std::string inSmallLetters(std::string_view text) {
    std::string small;
    for (const char c : text)
        small += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return small;
}

/// Whether the word is a part of the name or two of them in their order: "adapter" and "workdir" for
/// "networkAdapter" and "workingDirectory".
bool abbreviates(const std::string& word, const std::string& name) {
    const std::string parts = inSmallLetters(word);
    const std::string whole = inSmallLetters(name);
    for (std::size_t first = s_shortestPart; first <= parts.size(); ++first) {
        const std::size_t second = parts.size() - first;
        const auto at = whole.find(parts.substr(0, first));
        if (at == std::string::npos)
            return false;
        if (second == 0 ||
            (second >= s_shortestPart && whole.find(parts.substr(first), at + first) != std::string::npos))
            return true;
    }
    return false;
}

/// The name that the word was probably meant to be; empty where none is like it.
std::string meantBy(const std::string& word, const std::vector<std::string>& names) {
    if (const auto near = base::nearest(word, names, 1); !near.empty())
        return near.front();
    const auto name =
        std::find_if(names.begin(), names.end(), [&](const auto& known) { return abbreviates(word, known); });
    return name == names.end() ? std::string() : *name;
}

std::string inBrackets(const std::string& name) {
    return "<" + base::printable(name) + ">";
}

using Form = std::function<std::string(const std::string& name)>;

/// What would be right, to follow what is wrong.
std::string advice(const std::string& word, const std::vector<std::string>& names, const Form& form) {
    if (const std::string meant = meantBy(word, names); !meant.empty())
        return "; did you mean " + form(meant) + "?";
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "; there is " : ", ") + form(name);
    return text;
}

/// Of an element in one that has attributes alone.
std::string elementInLeaf(const std::string& name, const TiXmlElement& parent, const XmlFormat& format) {
    const std::string begin =
        "the element " + inBrackets(name) + " in " + inBrackets(parent.ValueStr()) + " is not read";
    if (name == parent.ValueStr())
        return begin + R"(; end the one around it with "/>" before it)";
    const std::string attribute = meantBy(name, format.attributes);
    return attribute.empty() ? begin + ", which has attributes alone"
                             : begin + "; write it as the attribute " + attribute + "=\"...\"";
}

void collect(const TiXmlElement& element, const XmlFormat& format, std::vector<UnreadPart>& parts) {
    for (const TiXmlAttribute* pAttribute = element.FirstAttribute(); pAttribute;
         pAttribute = pAttribute->Next()) {
        const std::string name = pAttribute->Name();
        const auto& known = format.attributes;
        if (isForeign(name) || std::find(known.begin(), known.end(), name) != known.end())
            continue;
        parts.push_back({element.Row(), "the attribute " + base::quoted(name) + " of " +
                                            inBrackets(element.ValueStr()) + " is unknown and not read" +
                                            advice(name, known, base::quoted)});
    }
    std::vector<std::string> known;
    for (const auto& [name, pFormat] : format.elements)
        known.push_back(name);
    for (const TiXmlElement* pChild = element.FirstChildElement(); pChild;
         pChild = pChild->NextSiblingElement()) {
        const std::string& name = pChild->ValueStr();
        if (const auto found = format.elements.find(name); found != format.elements.end()) {
            if (found->second)
                collect(*pChild, *found->second, parts);
        } else if (!format.endsAtOthers && !isForeign(name)) {
            parts.push_back({pChild->Row(), known.empty() ? elementInLeaf(name, element, format)
                                                          : "the element " + inBrackets(name) +
                                                                " is unknown, and nothing in it is read" +
                                                                advice(name, known, inBrackets)});
        }
    }
}

}  // namespace

const XmlFormat& XmlFormat::workplaces() {
    static const XmlFormat s_driver{.attributes = {"driverID", "driverType", "version", "workingDirectory",
                                                   "ipAddress", "networkAdapter", "interfaceType"},
                                    .elements = {}};
    static const XmlFormat s_workplace{.attributes = {"id"},
                                       .elements = {{"mainframeDriver", &s_driver}, {"ports", nullptr}}};
    static const XmlFormat s_workplaces{
        .attributes = {}, .elements = {{"workplace", &s_workplace}}, .endsAtOthers = true};
    return s_workplaces;
}

const XmlFormat& XmlFormat::descriptor() {
    static const XmlFormat s_type{
        .attributes = {"name", "type", "version", "description", "pdlFile", "prefix"}, .elements = {}};
    static const XmlFormat s_module{
        .attributes = {}, .elements = {{"module_type", &s_type}}, .endsAtOthers = true};
    return s_module;
}

std::vector<UnreadPart> unreadParts(const TiXmlElement& element, const XmlFormat& format) {
    std::vector<UnreadPart> parts;
    collect(element, format, parts);
    return parts;
}
