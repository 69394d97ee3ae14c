#include "FidLine.h"

#include <cstddef>

#include "Printable.h"

FidLine::FidLine(const std::vector<std::string>& words) {
    std::size_t next = 1;
    const auto take = [&] { return next < words.size() ? words[next++] : std::string(); };
    fid = take();
    while (next < words.size()) {
        std::string name = take();
        std::string value;
        const std::size_t equals = name.find('=');
        if (equals == std::string::npos) {
            value = take();
            if (value == "=")
                value = take();
            else if (value.starts_with('='))
                value.erase(0, 1);
            else
                hasStrayWord = true;
        } else {
            value = equals + 1 == name.size() ? take() : name.substr(equals + 1);
            name.erase(equals);
            hasStrayWord = hasStrayWord || name.empty();
        }
        parameters.add(name, value);
    }
}

std::string FidLine::text() const {
    std::string text = base::quoted(fid);
    const char* separator = " with ";
    for (const auto& [name, value] : parameters) {
        text += separator + base::quoted(name) + "=" + base::quoted(value);
        separator = " ";
    }
    return text;
}
