// Templates of summaries.
#include "agent/policy/summary.h"
#include "tests/agent/support/host_test.h"

namespace {

using policy::CheckTemplate;
using policy::Template;

std::string Render(const std::string &text, const policy::TemplateValues &values)
{
    return Template(text).Render(values);
}

TEST(Summary, PutsInWhatTheLineSays)
{
    EXPECT_EQ("disk of db1: a line",
              Render("disk of {{host}}: {{message}}", {{"host", "db1"}, {"message", "a line"}}));
    EXPECT_EQ("no names", Render("no names", {{"host", "db1"}}));
}

TEST(Summary, EscapesNothing)
{
    const std::string text = R"(<b> & "quotes" 'and' / \ ü)";
    EXPECT_EQ(text, Render("{{message}}", {{"message", text}}));
    EXPECT_EQ(text, Render("{{{message}}}", {{"message", text}}));
}

TEST(Summary, ALineIsNeverATemplate)
{
    const policy::TemplateValues values = {{"message", "{{host}} {{>host}}"}, {"host", "secret"}};
    EXPECT_EQ("{{host}} {{>host}}", Render("{{message}}", values));
    EXPECT_EQ("", Render("{{>message}}", values));
    EXPECT_EQ("{{host}} {{>host}}", Render("{{#message}}{{message}}{{/message}}", values));
}

TEST(Summary, ASectionIsLeftOutWithoutAValue)
{
    const std::string text =
        "{{#program}}of {{program}}{{/program}}{{^program}}of nobody{{/program}}";
    EXPECT_EQ("of sshd", Render(text, {{"program", "sshd"}}));
    EXPECT_EQ("of nobody", Render(text, {{"program", ""}}));
    EXPECT_EQ("of nobody", Render(text, {}));
}

TEST(Summary, IsCutBehindAWholeCharacter)
{
    std::string umlauts;
    for (int i = 0; i < 3000; ++i)
        umlauts += "ü";
    EXPECT_EQ(4096U, Render("{{message}}", {{"message", umlauts}}).size());
    EXPECT_EQ(4095U, Render("x{{message}}", {{"message", umlauts}}).size());
}

TEST(Summary, ATemplateWithAMistakeIsRefusedAndStandsForItself)
{
    EXPECT_EQ("cannot use the template \"a {{host\": it has a mistake (Unclosed tag at 2); write "
              "names as {{host}}",
              test::ErrorOf([] { CheckTemplate("a {{host"); }));
    EXPECT_EQ("a {{host", Render("a {{host", {{"host", "db1"}}));
}

TEST(Summary, ANameThatIsNotKnownIsRefusedWhereverItStands)
{
    const std::string known = "use {{host}}, {{program}}, {{message}}";
    for (const char *text :
         {"{{hst}}", "{{#host}}{{hst}}{{/host}}", "{{^host}}{{hst}}{{/host}}", "{{{hst}}}",
          "{{#hst}}x{{/hst}}", "{{#host}}{{^program}}{{hst}}{{/program}}{{/host}}",
          "{{^host}}{{#program}}{{hst}}{{/program}}{{/host}}",
          "{{#host}}a{{ ^ program}}b{{#message}}{{ ^host }}{{&hst}}{{/host}}"
          "{{/message}}{{/program}}{{/host}}",
          "{{=<% %>=}}<%#host%><%^program%><% hst %><%/program%><%/host%>",
          "{{=| |=}}|^host|{{^x}}|={{ }}=|{{#message}}{{^host}}{{hst}}{{/host}}"
          "{{/message}}{{/host}}"})
        EXPECT_EQ("cannot use the template \"" + std::string(text).substr(0, 60) +
                      "\": there is no {{hst}}; did you mean host? " + known,
                  test::ErrorOf([&] { CheckTemplate(text); }));
    EXPECT_EQ("cannot use the template \"{{>host}}\": there is no {{>host}}; did you mean host? " +
                  known,
              test::ErrorOf([] { CheckTemplate("{{>host}}"); }));
    EXPECT_EQ("no error", test::ErrorOf([] {
                  CheckTemplate("{{!^x}}{{#host}}{{^ host}}^{{/host}}{{/host}}");
              }));
    EXPECT_EQ("no error", test::ErrorOf([] { CheckTemplate("{{1}} {{host}}", {"1"}); }));
}

} // namespace
