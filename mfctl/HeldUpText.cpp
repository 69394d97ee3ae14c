#include "HeldUpText.h"

#include <chrono>

#include "AgeText.h"

std::string heldUpText(const JsonView& health) {
    if (!health.has("command"))
        return {};
    const JsonView command = health.member("command");
    std::string text = command.text("what") + " has been under way for " +
                       base::ageText(std::chrono::milliseconds(command.number("forMs")));
    if (!command.text("driver").empty())
        text += ", in " + command.text("operation") + " of " + command.text("driver");
    return text;
}
