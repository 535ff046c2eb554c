// What is read of rsyslog's configuration, and how.
#include "agent/cli/rsyslog_config.h"

#include "tests/agent/support/host_test.h"

namespace {

namespace fs = std::filesystem;

using cli::RsyslogConfig;
using cli::RsyslogSetting;
using test::WriteFile;

class RsyslogConfigTest : public test::RootTest {
  protected:
    void Write(const std::string &name, const std::string &text) const
    {
        fs::create_directories((File("etc") / name).parent_path());
        WriteFile(File("etc") / name, text);
    }
    // Of this file alone.
    RsyslogConfig Read(const std::string &text) const
    {
        Write("rsyslog.conf", text);
        return Read();
    }
    [[nodiscard]] RsyslogConfig Read() const
    {
        return cli::ReadRsyslogConfig(File("etc").parent_path(),
                                      {"/var/log/messages", "/var/log/customer"});
    }
    static std::string Shown(const RsyslogSetting &setting)
    {
        return setting.file.string() + ":" + std::to_string(setting.line) + ": " + setting.text +
               (setting.log.empty() ? "" : " of " + setting.log.string());
    }
    // What buffers a log, one setting a line.
    static std::string Buffered(const RsyslogConfig &config)
    {
        std::string all;
        for (const RsyslogSetting &setting : config.buffered)
            all += Shown(setting) + "\n";
        return all;
    }
    static std::string Reduction(const RsyslogConfig &config)
    {
        return config.reduction ? Shown(*config.reduction) : "off";
    }
};

TEST_F(RsyslogConfigTest, AHostWithoutItHasNone)
{
    EXPECT_FALSE(Read().is_there);
    EXPECT_TRUE(Read("").is_there);
}

TEST_F(RsyslogConfigTest, TheLastWordOnRepeatsCountsWhereverItStands)
{
    EXPECT_EQ("off", Reduction(Read("*.* /var/log/messages\n")));
    EXPECT_EQ("/etc/rsyslog.conf:2: $RepeatedMsgReduction on",
              Reduction(Read("*.* /var/log/messages\n$RepeatedMsgReduction on\n")));
    EXPECT_EQ("off", Reduction(Read("$RepeatedMsgReduction on\n$RepeatedMsgReduction off\n")));
    EXPECT_EQ("/etc/rsyslog.conf:3: $RepeatedMsgReduction on",
              Reduction(Read("$RepeatedMsgReduction on\n$RepeatedMsgReduction off\n"
                             "  $repeatedmsgreduction on # ours")));
}

TEST_F(RsyslogConfigTest, WordsThatRsyslogRefusesAndCommentsChangeNothing)
{
    EXPECT_EQ("off", Reduction(Read("$RepeatedMsgReduction ON\n$RepeatedMsgReduction yes\n"
                                    "# $RepeatedMsgReduction on\n"
                                    "/* a\n$RepeatedMsgReduction on\n*/\n"
                                    "$RepeatedMsgReduction\non\n")));
    EXPECT_EQ("/etc/rsyslog.conf:1: $RepeatedMsgReduction on",
              Reduction(Read("$RepeatedMsgReduction on\n$RepeatedMsgReduction OFF\n")));
}

TEST_F(RsyslogConfigTest, AnActionWithBufferedOutputIsFoundForAWatchedLog)
{
    EXPECT_EQ("/etc/rsyslog.conf:2: asyncWriting=\"on\" of /var/log/messages\n"
              "/etc/rsyslog.conf:2: flushOnTXEnd=\"off\" of /var/log/messages\n",
              Buffered(Read("module(load=\"imuxsock\")\n"
                            "if $msg contains 'a \"b' then { action ( type=\"omfile\" # one\n"
                            "   File = \"/var/log/messages\" ASYNCWRITING=\"on\"\n"
                            "   flushontxend=\"off\") }\n")));
    EXPECT_EQ("", Buffered(Read("*.* action(type=\"omfile\" file=\"/var/log/messages\"\n"
                                "  asyncWriting=\"off\" flushOnTXEnd=\"on\")\n"
                                "*.* action(type=\"omfile\" file=\"/var/log/other\"\n"
                                "  asyncWriting=\"on\" flushOnTXEnd=\"off\")\n"
                                "*.* action(type=\"omprog\" file=\"/var/log/messages\"\n"
                                "  asyncWriting=\"on\")\n")));
}

TEST_F(RsyslogConfigTest, SettingsOfTheOldFormHoldForTheOldActionsBehindThem)
{
    EXPECT_EQ("/etc/rsyslog.conf:2: $OMFileAsyncWriting on of /var/log/messages\n"
              "/etc/rsyslog.conf:2: $OMFileAsyncWriting on of /var/log/customer\n"
              "/etc/rsyslog.conf:5: $OMFileFlushOnTXEnd off of /var/log/messages\n",
              Buffered(Read("*.* /var/log/messages\n"
                            "$OMFileAsyncWriting on\n"
                            "mail.* -/var/log/messages;RSYSLOG_TraditionalFileFormat\n"
                            "& :omfile:/var/log/customer\n"
                            "$OMFileFlushOnTXEnd off\n"
                            "$OMFileAsyncWriting off\n"
                            "*.=info;*.=notice;\\\n"
                            "    auth.none   -/var/log/messages\n"
                            "$OMFileFlushOnTXEnd on\n"
                            "*.* /var/log/customer\n")));
    EXPECT_EQ("", Buffered(Read("$OMFileAsyncWriting on\n"
                                "*.* action(type=\"omfile\" file=\"/var/log/messages\")\n"
                                "*.* /var/log/messages.old\n"
                                ":msg, contains, \"/var/log/messages\" stop\n")));
}

TEST_F(RsyslogConfigTest, IncludedFilesAreReadInTheirPlace)
{
    Write("rsyslog.d/20-b.conf", "$RepeatedMsgReduction off\n*.* /var/log/messages\n");
    Write("rsyslog.d/10-a.conf", "$RepeatedMsgReduction on\n$OMFileFlushOnTXEnd off\n");
    Write("rsyslog.d/30.disabled", "$RepeatedMsgReduction on\n");
    const std::string buffered =
        "/etc/rsyslog.d/10-a.conf:2: $OMFileFlushOnTXEnd off of /var/log/messages\n";
    for (const char *include :
         {"$IncludeConfig /etc/rsyslog.d/*.conf", "$includeconfig   /etc/rsyslog.d/*.conf # all",
          "include(file=\"/etc/rsyslog.d/*.conf\" mode=\"optional\")"}) {
        const RsyslogConfig config = Read(include);
        EXPECT_EQ("off", Reduction(config)) << include;
        EXPECT_EQ(buffered, Buffered(config)) << include;
    }
    EXPECT_EQ("/etc/rsyslog.d/30.disabled:1: $RepeatedMsgReduction on",
              Reduction(Read("$IncludeConfig /etc/rsyslog.d/\n")));
    EXPECT_EQ("off", Reduction(Read("$IncludeConfig /etc/rsyslog.d/none\n$IncludeConfig\n")));
}

TEST_F(RsyslogConfigTest, FilesThatIncludeEachOtherEnd)
{
    EXPECT_EQ("/etc/rsyslog.conf:1: $RepeatedMsgReduction on",
              Reduction(Read("$RepeatedMsgReduction on\n$IncludeConfig /etc/rsyslog.conf\n")));
}

TEST_F(RsyslogConfigTest, AFileThatEndsTooEarlyIsReadToItsEnd)
{
    const std::string text = "$RepeatedMsgReduction on\n"
                             "include(file=\"/etc/rsyslog.d/\\\"*.conf\") /* */ # a\n"
                             "*.* action(type=\"omfile\" file=\"/var/log/messages\")\n";
    for (size_t size = 0; size < text.size(); ++size)
        EXPECT_EQ(size >= 24, Read(text.substr(0, size)).reduction.has_value()) << size;
}

TEST_F(RsyslogConfigTest, WhatIsNoRegularFileIsLeftAlone)
{
    fs::create_directories(File("etc") / "rsyslog.d" / "folder.conf");
    ASSERT_EQ(0, mkfifo((File("etc") / "rsyslog.d" / "fifo.conf").c_str(), 0600));
    EXPECT_TRUE(Read("$IncludeConfig /etc/rsyslog.d/*.conf\n").unreadable.empty());
}

} // namespace
