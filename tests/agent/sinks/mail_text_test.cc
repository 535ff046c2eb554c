#include "agent/sinks/mail_text.h"

#include <algorithm>

#include "tests/agent/sinks/sink_test.h"

namespace {

using sinks::Message;
using test::MessageOf;

constexpr int64_t kNow = 1795222801; // 2026-11-21 01:00:01 UTC

// Headers and text as a receiver sees them, but for those of MIME and the encoding of the text.
std::string Mail(const std::vector<Message> &messages)
{
    std::string mail;
    for (const std::string &header :
         sinks::MailHeaders(messages, "m@example.com", "a@example.com,b@example.com", kNow))
        mail += header + "\r\n";
    return mail + "\r\n" + sinks::MailBody(messages);
}

std::string SubjectOf(const std::string &text)
{
    const std::string mail = Mail({MessageOf(text)});
    const size_t begin = mail.find("Subject: ");
    return mail.substr(begin, mail.find("\r\nMessage-ID", begin) - begin);
}

bool Has(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
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
                                 "To: a@example.com,\r\n b@example.com\r\n"
                                 "Subject: host: DISK 1A2B: disk trouble\r\n"
                                 "Message-ID: <uuid.7@host>\r\n"
                                 "X-Syslogmon-Key: uuid/7\r\n"
                                 "Auto-Submitted: auto-generated\r\n"))
        << mail;
}

TEST(MailText, ACommaBehindTheLastReceiverMakesNoLine)
{
    const std::vector<Message> one = {MessageOf("one")};
    const auto headers = sinks::MailHeaders(one, "m@example.com", "a@example.com, ", kNow);
    EXPECT_NE(headers.end(), std::ranges::find(headers, "To: a@example.com"));
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

TEST(MailText, AHostCannotBreakTheMessageId)
{
    Message message = MessageOf("one", 7);
    message.alert.host = "a> b\r\nX-Y: \xC3\xA4";
    const std::string mail = Mail({message});
    EXPECT_TRUE(Has(mail, "\r\nMessage-ID: <uuid.7@a--b--X-Y-----><\r\n") ||
                Has(mail, "\r\nMessage-ID: <uuid.7@a--b--X-Y---->\r\n"))
        << mail;
    EXPECT_FALSE(Has(mail.substr(0, mail.find("\r\n\r\n")), "\r\nX-Y:"));
}

TEST(MailText, ASubjectIsOfAsciiInShortLines)
{
    const std::string subject = SubjectOf("\xC3\xA4" + std::string(5000, '\xFF') + "x");
    EXPECT_TRUE(subject.starts_with("Subject: =?UTF-8?B?")) << subject;
    EXPECT_LE(subject.size(), 500U);
    for (size_t begin = 0; begin < subject.size();) {
        const size_t end = std::min(subject.find("\r\n", begin), subject.size());
        EXPECT_LE(end - begin, 76U);
        begin = end + 2;
    }
    for (const char c : subject)
        EXPECT_TRUE(c == '\r' || c == '\n' || (c >= ' ' && c <= '~'));
    EXPECT_EQ("Subject: host: DISK 1A2B: plain", SubjectOf("plain"));
    EXPECT_EQ(209U, SubjectOf(std::string(5000, 'x')).size());
}

TEST(MailText, ALineThatLooksLikeAnEncodedWordIsEncodedItself)
{
    EXPECT_FALSE(Has(SubjectOf("=?UTF-8?B?QUxMIEdPT0Q=?="), "QUxMIEdPT0Q"));
}

TEST(MailText, TheTextIsUtf8WithLinesOfMail)
{
    const std::string body = sinks::MailBody(std::vector{MessageOf("\xC3\xA4 \xFF \x1B[2J\rx")});
    EXPECT_TRUE(body.starts_with("\xC3\xA4 ? ?[2J?x\r\n\r\n    source")) << body;
    for (size_t at = body.find('\n'); at != std::string::npos; at = body.find('\n', at + 1))
        EXPECT_EQ('\r', body[at - 1]);
}

Message MessageOfHost(const std::string &line_host, int64_t id = 1)
{
    Message message = MessageOf("one", id);
    message.alert.line_host = line_host;
    return message;
}

TEST(MailText, NamesTheHostOfTheLineItsProgramAndLogAndTheMonitorBesideIt)
{
    Message message = MessageOfHost("web07");
    message.alert.program = "sshd";
    const std::string mail = Mail({message});
    EXPECT_TRUE(Has(mail, "Subject: web07: DISK 1A2B: one\r\n")) << mail;
    EXPECT_TRUE(Has(mail, "    host      web07\r\n"
                          "    monitor   host\r\n"
                          "    program   sshd\r\n"
                          "    log       Application\r\n"))
        << mail;
}

TEST(MailText, OfALineWithoutAHostNamesThatOfTheMonitorOnce)
{
    for (const char *line_host : {"", "host"}) {
        const std::string mail = Mail({MessageOfHost(line_host)});
        EXPECT_TRUE(Has(mail, "Subject: host: DISK 1A2B: one\r\n")) << mail;
        EXPECT_TRUE(Has(mail, "    host      host\r\n    log ")) << mail;
    }
}

TEST(MailText, AHostCannotWriteALineOfItsOwn)
{
    const std::string mail = Mail({MessageOfHost("web07\n    monitor   db1")});
    EXPECT_FALSE(Has(mail, "\n    monitor   db1")) << mail;
}

TEST(MailText, ASubjectOfSeveralHostsDoesNotGiveAllAlertsToOne)
{
    EXPECT_TRUE(Has(Mail({MessageOfHost("web07"), MessageOfHost("web07", 2)}),
                    "Subject: web07: 2 alerts, first DISK 1A2B: one\r\n"));
    EXPECT_TRUE(
        Has(Mail({MessageOfHost("web07"), MessageOfHost("web08", 2), MessageOfHost("web07", 3)}),
            "Subject: 3 alerts of 2 hosts, first web07: DISK 1A2B: one\r\n"));
    Message last = MessageOfHost("web07");
    last.digest.Add(MessageOfHost("web08").alert);
    EXPECT_TRUE(Has(Mail({last}), "Subject: 2 alerts, last web07: DISK 1A2B: one"));
}

TEST(MailText, ATestSaysSoInItsSubject)
{
    Message message = MessageOf("one");
    message.is_test = true;
    EXPECT_TRUE(Has(Mail({message}), "Subject: TEST: host: DISK"));
}

} // namespace
