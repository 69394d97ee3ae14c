#include "RecordSchema.h"

#include <array>
#include <utility>

namespace {

/// The members that a kind has beside those of all, each with its type; "any" is a number, a text, a truth
/// value or null.
struct Members {
    std::string_view kind;
    std::array<std::pair<std::string_view, std::string_view>, 6> members;
};

constexpr std::array<Members, 20> s_members{{
    {"value", {{{"value", "any"}}}},
    {"event", {{{"value", "string"}}}},
    {"fid",
     {{{"fid", "string"},
       {"parameters", "array"},
       {"receiver", "string"},
       {"origin", "string"},
       {"who", "string"},
       {"outcome", "string"}}}},
    {"fid-end", {{{"of", "integer"}, {"outcome", "string"}, {"took_us", "integer"}, {"text", "string"}}}},
    {"command", {{{"origin", "string"}, {"who", "string"}, {"line", "string"}}}},
    {"command-end", {{{"of", "integer"}, {"ok", "boolean"}, {"took_us", "integer"}, {"text", "string"}}}},
    {"start", {{{"process", "integer"}, {"text", "string"}}}},
    {"exit", {{{"status", "integer"}, {"text", "string"}}}},
    {"hang", {{{"text", "string"}}}},
    {"restart", {{{"text", "string"}}}},
    {"configuration", {{{"ok", "boolean"}, {"took_us", "integer"}, {"operation", "string"}}}},
    {"log", {{{"level", "integer"}, {"output", "string"}, {"text", "string"}}}},
    {"output", {{{"text", "string"}}}},
    {"stale", {{{"values", "integer"}, {"text", "string"}}}},
    {"merged", {{{"received", "integer"}, {"merged", "integer"}, {"delivered", "integer"}}}},
    {"mark", {{{"origin", "string"}, {"who", "string"}, {"text", "string"}}}},
    {"wire", {{{"direction", "string"}, {"ok", "boolean"}, {"message", "string"}, {"bytes", "string"}}}},
    {"define", {{{"text", "string"}}}},
    {"counts", {{{"counts", "object"}}}},
    {"gap",
     {{{"reason", "string"},
       {"first", "integer"},
       {"next", "integer"},
       {"count", "integer"},
       {"from", "string"},
       {"to", "string"}}}},
}};

void addMember(std::string& schema, std::string_view name, std::string_view type) {
    if (schema.back() != '{')
        schema += ',';
    schema += '"' + std::string(name) + "\":{";
    if (type != "any")
        schema += "\"type\":\"" + std::string(type) + '"';
    // What a list is of; of a FID, its parameters.
    if (type == "array")
        schema += R"(,"items":{"type":"array","items":{"type":"string"}})";
    schema += '}';
}

}  // namespace

std::string schemaOf(std::string_view kind) {
    std::string schema = R"({"title":"mf.)" + std::string(kind) + R"(","type":"object","properties":{)";
    addMember(schema, "number", "integer");
    addMember(schema, "time", "string");
    addMember(schema, "kind", "string");
    addMember(schema, "driver", "string");
    addMember(schema, "key", "string");
    addMember(schema, "cause", "integer");
    for (const Members& each : s_members) {
        if (each.kind != kind)
            continue;
        for (const auto& [name, type] : each.members) {
            if (!name.empty())
                addMember(schema, name, type);
        }
    }
    addMember(schema, "cut", "boolean");
    return schema + "}}";
}
