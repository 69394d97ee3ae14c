#include "LinkCommands.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <string>

#include "AgeText.h"
#include "OrDash.h"
#include "Table.h"

namespace {

std::string age(std::int64_t milliseconds) {
    return base::ageText(std::chrono::milliseconds(milliseconds));
}

/// A number with one digit after the point.
std::string tenths(const JsonView& link, const char* pName) {
    const std::string whole = link.text(pName);
    double number = 0;
    std::from_chars(whole.data(), whole.data() + whole.size(), number);
    // Longer than the largest double is.
    std::array<char, 400> text{};
    const auto end =
        std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed, 1).ptr;
    return {text.data(), end};
}

std::string rates(const JsonView& link) {
    return link.has("inPerSecond") && link.has("outPerSecond")
               ? tenths(link, "inPerSecond") + "/" + tenths(link, "outPerSecond")
               : "-";
}

}  // namespace

EExit LinkCommands::list() {
    const ApiClient::Reply reply = m_control.ask("/links");
    if (m_control.asJson())
        return EExit::Done;
    const Screen& screen = m_control.screen();
    base::Table table(
        {"link", "site", "to", "broker", "state", "for", "delay", "msg/s in/out", "last error"});
    for (const JsonView& link : reply.view().list("links")) {
        const JsonView error = link.member("error");
        const base::Table::Cell state =
            link.flag("up") ? base::Table::Cell("up", base::Table::EColour::Good)
                            : base::Table::Cell(orDash(link.text("cause")), base::Table::EColour::Bad);
        table.addRow(
            {link.text("driver"), orDash(link.text("site")), orDash(link.text("to")),
             orDash(link.text("broker")), state, link.has("forMs") ? age(link.number("forMs")) : "-",
             link.has("delayMs") ? tenths(link, "delayMs") + " ms" : "-", rates(link),
             error.has("text") ? error.text("text") + " (" + age(error.number("ageMs")) + " ago)" : "-"});
    }
    if (table.empty())
        screen.out << "no links" << std::endl;
    else
        table.print(screen.out, {screen.look.width, screen.look.isColoured});
    return EExit::Done;
}
