#include "agent/sinks/mail_text.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <ctime>
#include <set>
#include <sstream>

#include "agent/events/events.h"
#include "agent/sinks/alert_json.h"
#include "agent/text/base64.h"
#include "agent/text/printable.h"
#include "agent/text/times.h"

namespace sinks {

namespace {

// A header line may have 998; a subject that long shows nobody more.
constexpr size_t kMaxSubject = 200; // bytes
// Of the text in an encoded word. In base64, with what stands around it and behind "Subject: ", a line of 73
// characters; 76 are allowed.
constexpr size_t kBytesOfAWord = 39;

// Held-back events that a mail tells of one by one: some pages.
constexpr size_t kEventsInAMail = 100;

// In UTC and with English names whatever the zone; the locale is C, in which the daemon stays.
std::string MailDate(int64_t now)
{
    const auto seconds = static_cast<time_t>(now);
    struct tm utc {};
    gmtime_r(&seconds, &utc);
    char text[64];
    strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S +0000", &utc);
    return text;
}

// Not inside of a character: its further bytes begin with the bits 10.
std::string Head(const std::string &text, size_t most)
{
    size_t end = std::min(text.size(), most);
    while (end > 0 && end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U)
        --end;
    return text.substr(0, end);
}

// One line of UTF-8.
std::string OneLine(std::string text)
{
    std::replace(text.begin(), text.end(), '\t', ' ');
    return text::Printable(text);
}

// A header is ASCII: other text goes in words of base64 (RFC 2047), each on a line of its own. So does one that
// looks like such a word, or a line of a log could write what it does not say.
std::string HeaderText(std::string text)
{
    const bool is_ascii = std::all_of(text.begin(), text.end(), [](char c) { return c > 0; });
    if (is_ascii && text.find("=?") == std::string::npos)
        return text;
    std::string words;
    while (!text.empty()) {
        const std::string piece = Head(text, kBytesOfAWord);
        words += (words.empty() ? "" : "\r\n ") + ("=?UTF-8?B?" + text::EncodeBase64(piece)) + "?=";
        text.erase(0, piece.size());
    }
    return words;
}

// Before the summary of the first alert. A host that stands in front of a number has all those alerts: of several
// hosts, or when those that were held back may be of others, the one of the alert stands beside it.
std::string SubjectHead(std::span<const Message> messages)
{
    const Message &first = messages[0];
    std::string host = first.alert.HostOfLine() + ": ";
    if (messages.size() == 1 && first.digest.IsEmpty())
        return host;
    if (messages.size() == 1)
        return std::to_string(first.digest.Whole().alerts + 1) + " alerts, last " + host;
    std::set<std::string> hosts;
    for (const Message &message : messages)
        hosts.insert(message.alert.HostOfLine());
    const std::string alerts = std::to_string(messages.size()) + " alerts";
    return hosts.size() == 1
               ? host + alerts + ", first "
               : alerts + " of " + std::to_string(hosts.size()) + " hosts, first " + host;
}

std::string Subject(std::span<const Message> messages)
{
    const Message &first = messages[0];
    const std::string text = (first.is_test ? "TEST: " : "") + SubjectHead(messages);
    return HeaderText(Head(OneLine(text + AlertSummary(first)), kMaxSubject));
}

// A receiver a line: no line of a mail may have more than 998 characters.
std::string Folded(const std::vector<std::string> &receivers)
{
    std::string lines;
    for (const std::string &receiver : receivers) {
        // That of a comma at the end would be a line of nothing.
        if (!receiver.empty())
            lines += (lines.empty() ? "" : ",\r\n ") + receiver;
    }
    return lines;
}

std::string MessageId(std::span<const Message> messages)
{
    // Of a mail that is sent again, the same ID: a mail program can show it once.
    std::string id = messages.front().key;
    if (messages.size() > 1)
        id += "-" + std::to_string(messages.back().alert.id);
    id += "@" + messages.front().alert.host;
    std::replace(id.begin(), id.end(), '/', '.');
    // What has a meaning in an address, or none in ASCII.
    for (char &c : id) {
        if (isalnum(static_cast<unsigned char>(c)) == 0 && strchr("-._@", c) == nullptr)
            c = '-';
    }
    return "<" + id + ">";
}

// What was held back, event by event.
std::string DigestText(const Digest &digest)
{
    const DigestEvent whole = digest.Whole();
    std::string text = "Held back before it: " + std::to_string(whole.alerts) + " alerts of " +
                       std::to_string(whole.hits) + " hits.\n\n";
    size_t told = 0;
    for (const DigestEvent &event : digest.Events()) {
        if (++told > kEventsInAMail) {
            text += "    and more events, which are in these sums; see syslogmon alerts\n\n";
            break;
        }
        text += "    " + event.source + " " + events::FormatEventId(event.event_id) + ": " +
                std::to_string(event.alerts) + " alerts of " + std::to_string(event.hits) +
                " hits\n";
        text += "    first     " + text::UtcTime(event.first_ms) + "  " + event.first + "\n";
        text += "    last      " + text::UtcTime(event.last_ms) + "  " + event.last + "\n\n";
    }
    return text + "\n";
}

// The line first, since a list of mails shows how the text begins. Then one fact a line, in
// columns.
std::string PlainText(std::span<const Message> messages)
{
    std::string text;
    for (const Message &message : messages) {
        const alerts::Alert &alert = message.alert;
        if (!alert.summary.empty())
            text += alert.summary + "\n\n";
        text += alert.message + "\n\n";
        text += "    source    " + alert.source + "\n";
        text += "    event ID  " + events::FormatEventId(alert.event_id) + "\n";
        text += "    hits      " + std::to_string(alert.count) + "\n";
        text += "    host      " + OneLine(alert.HostOfLine()) + "\n";
        if (alert.HostOfLine() != alert.host)
            text += "    monitor   " + OneLine(alert.host) + "\n";
        if (!alert.program.empty())
            text += "    program   " + OneLine(alert.program) + "\n";
        text += "    log       " + OneLine(alert.log_name) + "\n";
        text += "    time      " + text::UtcTime(alert.time_ms) + "\n";
        if (!alert.severity.empty())
            text += "    severity  " + alert.severity + "\n";
        for (const auto &[name, value] : alert.labels)
            text.append("    label     ").append(name).append(": ").append(value).append("\n");
        if (!alert.runbook_url.empty())
            text += "    runbook   " + alert.runbook_url + "\n";
        if (!alert.value.empty())
            text += "    value     " + alert.value + "\n";
        if (const alerts::HeldBack &held = alert.held_back; held.reports > 0) {
            text += "    held back " + std::to_string(held.reports) + " reports of " +
                    std::to_string(held.hits) + " hits before this one\n";
            text += "    first     " + held.first + "\n";
            text += "    last      " + held.last + "\n";
        }
        if (alert.IsFolded()) {
            text += "    reports   " + std::to_string(alert.reports) +
                    ", the line above is the first\n";
            text += "    last time " + text::UtcTime(alert.last_time_ms) + "\n";
            text += "    last line " + alert.last_message + "\n";
        }
        text += "    key       " + message.key + "\n\n\n";
        if (!message.digest.IsEmpty())
            text += DigestText(message.digest);
    }
    return text;
}

} // namespace

std::vector<std::string> ReceiversIn(const std::string &to)
{
    std::vector<std::string> receivers;
    std::istringstream list(to);
    for (std::string receiver; std::getline(list, receiver, ',');) {
        receiver.erase(0, receiver.find_first_not_of(' '));
        receiver.erase(receiver.find_last_not_of(' ') + 1);
        receivers.push_back(receiver);
    }
    return receivers;
}

std::string MailBody(std::span<const Message> messages)
{
    std::istringstream lines(PlainText(messages));
    std::string body;
    for (std::string line; std::getline(lines, line);)
        body += text::Printable(line) + "\r\n";
    return body;
}

std::vector<std::string> MailHeaders(std::span<const Message> messages, const std::string &from,
                                     const std::string &to, int64_t now)
{
    std::vector<std::string> headers = {
        "Date: " + MailDate(now), "From: Syslog monitor <" + from + ">",
        "To: " + Folded(ReceiversIn(to)), "Subject: " + Subject(messages),
        "Message-ID: " + MessageId(messages)};
    for (const Message &message : messages)
        headers.push_back("X-Syslogmon-Key: " + message.key);
    headers.emplace_back(
        "Auto-Submitted: auto-generated"); // so that nobody's holiday notice answers
    return headers;
}

} // namespace sinks
