#pragma once

#include <string>
#include <string_view>

/// The JSON Schema of what a record of that kind is as JSON (stream::appendJson), by the name of the kind. Of
/// what is no kind it has what all records have. Any thread.
std::string schemaOf(std::string_view kind);
