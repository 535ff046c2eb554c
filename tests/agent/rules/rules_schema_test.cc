// The schema for editors says what the reader says.
#include <fstream>

#include <nlohmann/json.hpp>
#include <re2/re2.h>

#include "agent/rules/rules_file.h"
#include "tests/agent/support/host_test.h"
#include "tests/agent/support/issues_test.h"

namespace {

using nlohmann::json;

json Schema()
{
    return json::parse(test::ReadFile(SOURCE_FOLDER "/packaging/rules.schema.json"));
}

bool ReaderTakes(const std::string &values)
{
    return rules::ParseRules("events: [{source: A, id: 1, keywords: x, " + values + "}]")
        .issues.empty();
}

std::vector<std::string> NamesOf(const json &properties)
{
    std::vector<std::string> names;
    for (const auto &property : properties.items())
        names.push_back(property.key());
    return names;
}

std::vector<std::string> Sorted(std::vector<std::string> names)
{
    std::sort(names.begin(), names.end());
    return names;
}

TEST(RulesSchema, KnowsTheSameKeys)
{
    const json schema = Schema();
    EXPECT_EQ(Sorted(rules::FileKeys()), NamesOf(schema["properties"]));
    EXPECT_EQ(Sorted(rules::EventKeys()), NamesOf(schema["definitions"]["event"]["properties"]));
    EXPECT_FALSE(schema["additionalProperties"]);
    EXPECT_FALSE(schema["definitions"]["event"]["additionalProperties"]);
    // Without keywords, the expression says what is searched for.
    EXPECT_EQ(json::parse(R"([{"required": ["keywords"]}, {"required": ["regex"]}])"),
              schema["definitions"]["event"]["anyOf"]);
    for (const std::string name : {"source", "id", "keywords", "report_count", "hours"}) {
        json event = {
            {"source", "A"}, {"id", "1"}, {"keywords", "x"}, {"report_count", 1}, {"hours", "all"}};
        event.erase(name);
        const json required = schema["definitions"]["event"]["required"];
        const bool is_required = name == "keywords" || std::find(required.begin(), required.end(),
                                                                 name) != required.end();
        EXPECT_EQ(!is_required, rules::ParseRules(json{{"events", {event}}}.dump()).issues.empty())
            << name;
    }
}

// "^header[.]" as the program says it.
std::string WithoutAnchors(std::string pattern)
{
    std::erase_if(pattern,
                  [](char c) { return std::string_view("^[]").find(c) != std::string_view::npos; });
    return pattern;
}

// "header." in the program is a pattern in the schema.
std::vector<std::string> OptionsOf(const json &definition)
{
    std::vector<std::string> names = NamesOf(definition["properties"]);
    std::erase_if(names, [](const auto &name) { return name == "name" || name == "kind"; });
    for (const auto &pattern : NamesOf(definition.value("patternProperties", json::object())))
        names.push_back(WithoutAnchors(pattern));
    return Sorted(names);
}

std::vector<std::string> RequiredOf(const json &definition)
{
    std::vector<std::string> names = definition["required"];
    std::erase_if(names, [](const auto &name) { return name == "name" || name == "kind"; });
    return Sorted(names);
}

TEST(RulesSchema, KnowsTheSameSinks)
{
    std::map<std::string, json> definitions;
    const json schema = Schema();
    for (const json &one : schema["definitions"]["sink"]["oneOf"])
        definitions[one["properties"]["kind"]["const"]] = one;
    EXPECT_EQ(sinks::AllKinds().size(), definitions.size());
    for (const sinks::SinkKind &kind : sinks::AllKinds()) {
        std::vector<std::string> options;
        std::vector<std::string> required;
        for (const sinks::SinkOption &option : kind.options) {
            options.emplace_back(option.name);
            if (option.standard == nullptr)
                required.emplace_back(option.name);
        }
        EXPECT_EQ(Sorted(options), OptionsOf(definitions[kind.name])) << kind.name;
        EXPECT_EQ(Sorted(required), RequiredOf(definitions[kind.name])) << kind.name;
        EXPECT_FALSE(definitions[kind.name]["additionalProperties"]);
    }
}

TEST(RulesSchema, KnowsTheSameInputs)
{
    const json schema = Schema();
    EXPECT_EQ(2U, schema["definitions"]["input"]["oneOf"].size());
    for (const json &definition : schema["definitions"]["input"]["oneOf"]) {
        const std::string kind = definition["properties"]["kind"]["const"];
        std::vector<std::string> options;
        for (const inputs::InputOption &option : inputs::AllInputOptions()) {
            if (kind != option.kind)
                continue;
            options.emplace_back(option.name);
            EXPECT_EQ(option.is_repeated, definition["properties"][option.name].contains("oneOf"))
                << kind << " " << option.name;
        }
        EXPECT_EQ(Sorted(options), OptionsOf(definition)) << kind;
        EXPECT_FALSE(definition["additionalProperties"]);
    }
}

TEST(RulesSchema, KnowsTheSameSettingsAndSilences)
{
    const json schema = Schema();
    std::vector<std::string> settings;
    for (const settings::Setting &setting : settings::AllSettings())
        settings.emplace_back(setting.name);
    EXPECT_EQ(Sorted(settings), NamesOf(schema["properties"]["settings"]["properties"]));
    EXPECT_FALSE(schema["properties"]["settings"]["additionalProperties"]);
    const json silence = schema["definitions"]["silence"];
    EXPECT_EQ(Sorted(rules::kSilenceKeys), NamesOf(silence["properties"]));
    EXPECT_FALSE(silence["additionalProperties"]);
}

TEST(RulesSchema, KnowsTheSameHours)
{
    const std::string pattern = Schema()["definitions"]["hours"]["pattern"];
    const RE2 hours(pattern);
    ASSERT_TRUE(hours.ok()) << hours.error();
    std::vector<std::string> texts = {"all",     "none",        "All", "",      "8-18",  "22-6",
                                      "8-18,22", "8 - 18 , 22", "8-",  "-8",    "8,",    ",8",
                                      "8--9",    "1 2",         "0x1", "8:00",  "all,8", "100",
                                      "8-100",   " 8 ",         "8;9", "1-2-3", "24,1",  "0-24,1"};
    for (int hour = 0; hour <= 30; ++hour) {
        const std::string number = std::to_string(hour);
        texts.insert(texts.end(), {number, "0" + number});
        if (hour != 1) // a schema cannot see that a span ends where it begins
            texts.insert(texts.end(), {number + "-1", "1-" + number});
    }
    for (const std::string &text : texts)
        EXPECT_EQ(ReaderTakes("hours: '" + text + "'"), RE2::FullMatch(text, hours)) << text;
}

TEST(RulesSchema, KnowsTheSameIds)
{
    const std::string pattern = Schema()["definitions"]["event"]["properties"]["id"]["pattern"];
    const RE2 ids(pattern);
    ASSERT_TRUE(ids.ok()) << ids.error();
    for (const std::string text :
         {"0", "1A2B", "ffffffff", "00000000", "123456789", "", "0x1", "G", "-1", " 1", "1 "}) {
        const bool taken =
            rules::ParseRules("events: [{source: A, keywords: x, id: '" + text + "'}]")
                .issues.empty();
        EXPECT_EQ(taken, RE2::FullMatch(text, ids)) << text;
    }
}

TEST(RulesSchema, KnowsTheSameLimits)
{
    const json event = Schema()["definitions"]["event"]["properties"];
    const auto most = event["report_count"]["maximum"].get<int64_t>();
    EXPECT_TRUE(ReaderTakes("report_count: " + std::to_string(most)));
    EXPECT_FALSE(ReaderTakes("report_count: " + std::to_string(most + 1)));
    const auto least = event["report_count"]["minimum"].get<int64_t>();
    EXPECT_TRUE(ReaderTakes("report_count: " + std::to_string(least)));
    EXPECT_FALSE(ReaderTakes("report_count: " + std::to_string(least - 1)));

    const auto keyword = Schema()["definitions"]["keyword"]["maxLength"].get<size_t>();
    const auto source = event["source"]["maxLength"].get<size_t>();
    const auto takes = [](size_t source_size, size_t keyword_size) {
        return rules::ParseRules("events: [{id: 1, source: " + std::string(source_size, 'x') +
                                 ", keywords: " + std::string(keyword_size, 'x') + "}]")
            .issues.empty();
    };
    EXPECT_TRUE(takes(source, keyword));
    EXPECT_FALSE(takes(source + 1, keyword));
    EXPECT_FALSE(takes(source, keyword + 1));
}

TEST(Examples, TheFileOfAWholeHostIsTaken)
{
    const auto parsed = rules::ParseRules(test::ReadFile(SOURCE_FOLDER "/examples/host.yaml"));
    EXPECT_EQ("", test::Text(parsed.issues));
    const rules::Sections &sections = parsed.sections;
    EXPECT_TRUE(parsed.has_events && sections.sinks && sections.inputs && sections.silences &&
                sections.settings);
}

TEST(Examples, TheRulesFileIsTaken)
{
    const auto parsed = rules::ParseRules(test::ReadFile(SOURCE_FOLDER "/examples/rules.yaml"));
    EXPECT_EQ("", test::Text(parsed.issues));
    EXPECT_EQ(9U, parsed.rules.size());
}

} // namespace
