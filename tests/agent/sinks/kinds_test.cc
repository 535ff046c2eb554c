// What the kinds refuse, and that each can be made with the options that it must have.
#include "tests/agent/sinks/sink_test.h"

namespace {

using test::Options;

class KindsTest : public test::SinkTest {
  protected:
    std::string Refusal(const std::string &kind, const Options &options)
    {
        return test::ErrorOf([&] { sinks::CheckSink(Config(kind, options)); });
    }
    void ExpectRefused(const std::string &kind, const Options &options, const std::string &part)
    {
        const std::string error = Refusal(kind, options);
        EXPECT_NE(std::string::npos, error.find(part)) << error;
    }
    void ExpectAccepted(const std::string &kind, const Options &options)
    {
        EXPECT_EQ("no error", Refusal(kind, options));
    }
    std::string Secret() { return SecretFile("secret", "long enough"); }
};

TEST_F(KindsTest, EveryOptionHasAHelpAndAStandardThatIsAccepted)
{
    for (const sinks::SinkKind &kind : sinks::AllKinds()) {
        EXPECT_NE("", std::string(kind.help));
        for (const sinks::SinkOption &option : kind.options) {
            EXPECT_NE("", std::string(option.help)) << kind.name << " " << option.name;
            if (option.standard != nullptr && option.standard[0] != '\0') {
                EXPECT_EQ("", option.check(option.standard)) << kind.name << " " << option.name;
            }
        }
    }
}

TEST_F(KindsTest, SnmpOptionsGoTogether)
{
    const Options base = {{"receiver", "127.0.0.1"}};
    const auto with = [&](Options more) {
        more.insert(base.begin(), base.end());
        return more;
    };
    ExpectAccepted("snmp", with({{"community-file", Secret()}}));
    ExpectAccepted("snmp", with({{"version", "3"}, {"user", "u"}}));
    ExpectRefused("snmp", base, "it has no community");
    ExpectRefused("snmp", with({{"version", "3"}}), "version 3 needs a user");
    ExpectRefused("snmp", with({{"user", "u"}}), "a user belongs to version 3");
    ExpectRefused("snmp", with({{"version", "3"}, {"user", "u"}, {"community-file", Secret()}}),
                  "a community belongs to version 2c");
    ExpectRefused("snmp", with({{"version", "3"}, {"user", "u"}, {"auth", "SHA"}}),
                  "belong together");
    ExpectRefused("snmp",
                  with({{"version", "3"}, {"user", "u"}, {"priv", "AES"}, {"priv-file", Secret()}}),
                  "add auth=SHA");
    ExpectRefused("snmp", with({{"version", "3"}, {"user", "u"}, {"notify", "trap"}}),
                  "needs an engine ID");
    ExpectRefused("snmp", with({{"version", "1"}}), "use one of 2c, 3");
    ExpectRefused("snmp", with({{"auth", "ROT13"}}), "use one of SHA, SHA-256, SHA-512, MD5");
    ExpectRefused("snmp", with({{"engine-id", "12345678g"}}), "hexadecimal digits");
}

TEST_F(KindsTest, MailOptionsGoTogether)
{
    const Options base = {
        {"server", "smtp://h"}, {"from", "a@example.com"}, {"to", "b@example.com"}};
    const auto with = [&](Options more) {
        more.insert(base.begin(), base.end());
        return more;
    };
    ExpectAccepted("mail", base);
    ExpectAccepted("mail", with({{"user", "u"}, {"password-file", Secret()}}));
    ExpectRefused("mail", with({{"user", "u"}}), "it has a user and no password");
    ExpectRefused("mail", with({{"password-file", Secret()}}), "it has a password and no user");
    ExpectRefused("mail", with({{"user", "u"}, {"password-file", Secret()}, {"tls", "none"}}),
                  "would be sent without encryption");
    for (const char *server : {"h", "http://h", "smtp://", "smtp://u:p@h", "smtp://h/x"})
        ExpectRefused("mail", with({{"server", server}}), "use smtp://HOST[:PORT]");
    for (const char *to : {"", "b", "b@", "@b", "a@b c@d", "a@b,<c@d>"})
        ExpectRefused("mail", with({{"to", to}}), "use addresses separated by commas");
    ExpectRefused("mail", with({{"digest", "501"}}), "from 1 to 500");
}

TEST_F(KindsTest, SyslogTakesTheNamesOfSyslog)
{
    ExpectAccepted("syslog", {});
    ExpectAccepted("syslog", {{"facility", "local7"}, {"level", "debug"}});
    ExpectRefused("syslog", {{"facility", "local8"}}, "use one of user, daemon, auth");
    ExpectRefused("syslog", {{"level", "loud"}}, "use one of emerg, alert, crit");
    ExpectRefused("syslog", {{"socket", "/" + std::string(200, 'x')}}, "at most 107 bytes");
    ExpectRefused("journal", {{"level", "7"}}, "use one of emerg");
}

TEST_F(KindsTest, AMailOfManyAlertsIsOneMessage)
{
    const auto is_one = [](const sinks::SinkConfig &config) {
        sinks::Secrets secrets;
        const auto sink = config.kind->open(config, "", secrets);
        EXPECT_LT(1U, sink->batch());
        return sink->IsBatchOneMessage();
    };
    EXPECT_TRUE(is_one(Config(
        "mail",
        {{"server", "smtp://127.0.0.1:1"}, {"from", "a@example.com"}, {"to", "b@example.com"}})));
    EXPECT_FALSE(is_one(Config("file", {{"path", File("alerts")}})));
    EXPECT_FALSE(is_one(Config("syslog", {{"socket", File("none")}})));
}

TEST_F(KindsTest, NobodyWhoListensIsAFailureOfEachKind)
{
    const std::map<std::string, Options> unreachable = {
        {"alertmanager", {{"peers", "http://127.0.0.1:1"}}},
        {"mail",
         {{"server", "smtp://127.0.0.1:1"}, {"from", "a@example.com"}, {"to", "b@example.com"}}},
        {"snmp", {{"receiver", "127.0.0.1:1"}, {"community-file", Secret()}, {"timeout", "1"}}},
        {"syslog", {{"socket", File("none")}}},
        {"webhook", {{"url", "http://127.0.0.1:1"}}}};
    for (const auto &[kind, options] : unreachable) {
        const sinks::SinkConfig config = Config(kind, options);
        sinks::Secrets secrets;
        const auto sink = config.kind->open(config, config.Peers()[0], secrets);
        const sinks::Message message = test::MessageOf("one");
        const sinks::Outcome outcome = sink->Send(std::span(&message, 1), {});
        EXPECT_EQ(sinks::Outcome::Result::kFailed, outcome.result) << kind;
        EXPECT_NE("", outcome.answer) << kind;
        EXPECT_EQ(0U, outcome.taken) << kind;
    }
}

} // namespace
