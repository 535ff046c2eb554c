#include "agent/sinks/mail_text.h"

#include "tests/agent/sinks/sink_test.h"

namespace {

using sinks::MailText;
using sinks::Message;
using sinks::QuotedPrintable;
using test::MessageOf;

constexpr int64_t kNow = 1795222801; // 2026-11-21 01:00:01 UTC

std::string Mail(const std::vector<Message> &messages)
{
    return MailText(messages, "m@example.com", "a@example.com,b@example.com", kNow);
}

bool Has(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

TEST(QuotedPrintable, LeavesPlainTextAlone)
{
    EXPECT_EQ("plain text, 100%\r\n", QuotedPrintable("plain text, 100%\n"));
}

TEST(QuotedPrintable, WritesOtherBytesInHexadecimal)
{
    EXPECT_EQ("a=3Db =C3=A4=FF=00", QuotedPrintable(std::string("a=b \xC3\xA4\xFF\0", 8)));
    EXPECT_EQ("ends with=20\r\n", QuotedPrintable("ends with \n"));
}

TEST(QuotedPrintable, NoLineIsLongerThan76)
{
    for (const char c : {'x', '=', ' '}) {
        const std::string out = QuotedPrintable(std::string(1000, c) + ".");
        size_t begin = 0;
        while (begin < out.size()) {
            const size_t end = std::min(out.find("\r\n", begin), out.size());
            EXPECT_LE(end - begin, 76U) << c;
            begin = end + 2;
        }
    }
}

TEST(MailText, OfManyReportsHasTheFirstLineAndTheLast)
{
    Message message = MessageOf("first");
    message.alert.reports = 13;
    message.alert.last_time_ms = kNow * 1000;
    message.alert.last_message = "last";
    const std::string mail = Mail({message});
    EXPECT_TRUE(Has(mail, "Subject: host: DISK 1A2B: first (and 12 more until "
                          "2026-11-21T01:00:01.000Z, the last: last)\r\n"))
        << mail;
    EXPECT_TRUE(Has(mail, "    reports   13, the line above is the first\r\n"
                          "    last time 2026-11-21T01:00:01.000Z\r\n"
                          "    last line last\r\n"))
        << mail;
}

TEST(MailText, HasTheHeadersOfAMailThatNobodyAnswers)
{
    const std::string mail = Mail({MessageOf("disk trouble", 7)});
    EXPECT_TRUE(mail.starts_with("Date: Sat, 21 Nov 2026 01:00:01 +0000\r\n"
                                 "From: Syslog monitor <m@example.com>\r\n"
                                 "To: a@example.com,b@example.com\r\n"
                                 "Subject: host: DISK 1A2B: disk trouble\r\n"
                                 "Message-ID: <uuid.7@host>\r\n"
                                 "X-Syslogmon-Key: uuid/7\r\n"
                                 "Auto-Submitted: auto-generated\r\n"))
        << mail;
}

TEST(MailText, OfSeveralAlertsHasAllKeys)
{
    const std::string mail = Mail({MessageOf("one", 7), MessageOf("two", 8)});
    EXPECT_TRUE(Has(mail, "Subject: host: 2 alerts, first DISK 1A2B: one\r\n"));
    EXPECT_TRUE(Has(mail, "Message-ID: <uuid.7-8@host>\r\n"));
    EXPECT_TRUE(Has(mail, "X-Syslogmon-Key: uuid/7\r\nX-Syslogmon-Key: uuid/8\r\n"));
}

TEST(MailText, ALineOfALogCannotAddAHeader)
{
    const std::string mail = Mail({MessageOf("x\r\nBcc: everybody@example.com")});
    EXPECT_FALSE(Has(mail.substr(0, mail.find("\r\n\r\n")), "\r\nBcc:"));
}

TEST(MailText, ASubjectIsAsciiAndShort)
{
    const std::string mail = Mail({MessageOf("\xC3\xA4" + std::string(5000, 'x'))});
    const size_t begin = mail.find("Subject: ") + 9;
    const std::string subject = mail.substr(begin, mail.find("\r\n", begin) - begin);
    EXPECT_LE(subject.size(), 200U);
    EXPECT_TRUE(Has(subject, "??x"));
}

TEST(MailText, ATestSaysSoInItsSubject)
{
    Message message = MessageOf("one");
    message.is_test = true;
    EXPECT_TRUE(Has(Mail({message}), "Subject: TEST: host: DISK"));
}

} // namespace
