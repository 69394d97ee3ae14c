#include "RecordSchema.h"

#include <nlohmann/json.hpp>

#include "RecordingFixture.h"
#include "StreamText.h"

namespace {

class RecordSchemaTest : public RecordingFixture {};

/// Whether the value is of the type that the schema names; of any where it names none.
bool fits(const nlohmann::json& value, const nlohmann::json& schema) {
    const std::string type = schema.value("type", "");
    return type.empty() || type == value.type_name() || (type == "integer" && value.is_number_integer());
}

}  // namespace

TEST_F(RecordSchemaTest, NamesTheMembersOfAKind) {
    EXPECT_EQ(
        R"({"title":"mf.exit","type":"object","properties":{"number":{"type":"integer"},"time":{"type":"string"},)"
        R"("kind":{"type":"string"},"driver":{"type":"string"},"key":{"type":"string"},"cause":{"type":"integer"},)"
        R"("status":{"type":"integer"},"text":{"type":"string"},"cut":{"type":"boolean"}}})",
        schemaOf("exit"));
}

TEST_F(RecordSchemaTest, EveryRecordFitsItsSchema) {
    // With a name, and numbers, at the beginning of its text, each kind has all its members.
    const std::string text = std::string("\4anna\4LAMP\1\1x\1y", 15) + std::string(64, '\0') + "why";
    for (const auto name : stream::kindNames()) {
        const auto schema = nlohmann::json::parse(schemaOf(name))["properties"];
        for (const auto kind : stream::kindsNamed(name)) {
            stream::StreamRecord record;
            record.kind = kind;
            record.text = text;
            record.keyText = "KEY";
            record.cause = 1;
            record.value = 1;
            record.isCut = true;
            std::string json;
            stream::appendJson(json, record, {});
            const auto parsed = nlohmann::json::parse(json);
            for (const auto& [member, value] : parsed.items()) {
                ASSERT_TRUE(schema.contains(member)) << name << ' ' << member;
                EXPECT_TRUE(fits(value, schema[member])) << name << ' ' << member;
            }
        }
    }
}

TEST_F(RecordSchemaTest, GapOfAReaderFitsToo) {
    std::string json;
    stream::appendJson(json, {.first = 1, .next = 3, .from = at(0), .to = at(1), .count = 2});
    const auto schema = nlohmann::json::parse(schemaOf("gap"))["properties"];
    const auto parsed = nlohmann::json::parse(json);
    for (const auto& [member, value] : parsed.items())
        EXPECT_TRUE(schema.contains(member) && fits(value, schema[member])) << member;
}
