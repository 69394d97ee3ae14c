#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

/// Takes out of what leaves the machine whatever looks like a secret: values under names such as "password"
/// or "token", private keys, passwords in addresses. It goes by names: a secret under a harmless name stays.
/// Any thread.
class Redaction {
public:
    static constexpr const char* s_mark = "***";

    /// NAME=VALUE, "NAME": "VALUE", NAME: VALUE, scheme://USER:PASSWORD@, and PEM blocks.
    static std::string text(std::string_view text);
    /// The words of a command line: also --NAME VALUE.
    static std::vector<std::string> command(std::vector<std::string> words);
    /// Members by their names; "value" and "text" beside a "key", "id" or "name" that looks secret; pairs of
    /// a name and a value; texts as above.
    static nlohmann::json json(nlohmann::json value);

    static bool isSecret(std::string_view name);
};
