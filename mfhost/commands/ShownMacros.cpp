#include "ShownMacros.h"

#include <algorithm>
#include <string_view>

#include "PanelNames.h"

namespace {

constexpr std::string_view s_separator = ", ";
/// What the panel driver puts at the end where there is no room for more.
constexpr std::string_view s_etCetera = "...";

}  // namespace

ShownMacros ShownMacros::of(const StateStore& store) {
    const auto entry = store.find(std::string(protocol::panelDriverID) + ".MACRO.NAMES");
    const std::string text = entry && !entry->isStale() ? entry->value.text() : std::string();
    ShownMacros shown;
    for (std::size_t begin = 0; begin < text.size();) {
        const auto end = std::min(text.find(s_separator, begin), text.size());
        shown.names.push_back(text.substr(begin, end - begin));
        begin = end + s_separator.size();
    }
    if (!shown.names.empty() && shown.names.back() == s_etCetera) {
        shown.names.pop_back();
        shown.isWhole = false;
    }
    return shown;
}
