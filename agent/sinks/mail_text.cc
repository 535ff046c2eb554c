#include "agent/sinks/mail_text.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "agent/events/events.h"
#include "agent/sinks/alert_json.h"
#include "agent/text/times.h"

namespace sinks {

namespace {

// A header line may have 998; a subject that long shows nobody more.
constexpr size_t kMaxSubject = 200; // bytes

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

// A header is ASCII and one line: a line of a log must not be able to add headers or end them. What
// is not ASCII is in the body, whole.
std::string HeaderText(std::string text)
{
    for (char &c : text) {
        if (c < ' ' || c > '~')
            c = '?';
    }
    text.resize(std::min(text.size(), kMaxSubject));
    return text;
}

std::string Subject(std::span<const Message> messages)
{
    const Message &first = messages[0];
    std::string text = first.is_test ? "TEST: " : "";
    text += first.alert.host + ": ";
    if (messages.size() > 1)
        text += std::to_string(messages.size()) + " alerts, first ";
    else if (!first.digest.IsEmpty())
        text += std::to_string(first.digest.Whole().alerts + 1) + " alerts, last ";
    return HeaderText(text + AlertSummary(first));
}

std::string MessageId(std::span<const Message> messages)
{
    // Of a mail that is sent again, the same ID: a mail program can show it once.
    std::string id = messages.front().key;
    if (messages.size() > 1)
        id += "-" + std::to_string(messages.back().alert.id);
    std::replace(id.begin(), id.end(), '/', '.');
    return "<" + id + "@" + HeaderText(messages.front().alert.host) + ">";
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
std::string Body(std::span<const Message> messages)
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
        text += "    host      " + alert.host + "\n";
        text += "    time      " + text::UtcTime(alert.time_ms) + "\n";
        if (!alert.severity.empty())
            text += "    severity  " + alert.severity + "\n";
        for (const auto &[name, value] : alert.labels)
            text += "    label     " + name + ": " + value + "\n";
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

std::string QuotedPrintable(const std::string &text)
{
    constexpr size_t kLongest = 72;
    std::string out;
    size_t column = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == '\n') {
            out += "\r\n";
            column = 0;
            continue;
        }
        // A blank at the end of a line is lost on the way, so it is written as =20.
        const bool ends_line = i + 1 == text.size() || text[i + 1] == '\n';
        const bool plain = c > ' ' && c <= '~' && c != '=';
        char piece[8];
        if (plain || (c == ' ' && !ends_line))
            snprintf(piece, sizeof piece, "%c", c);
        else
            snprintf(piece, sizeof piece, "=%02X", c);
        const std::string added = piece;
        // A soft line break: the = at the end is not a part of the text.
        if (column + added.size() > kLongest) {
            out += "=\r\n";
            column = 0;
        }
        out += added;
        column += added.size();
    }
    return out;
}

std::string MailText(std::span<const Message> messages, const std::string &from,
                     const std::string &to, int64_t now)
{
    std::string text = "Date: " + MailDate(now) + "\r\n";
    text += "From: Syslog monitor <" + from + ">\r\n";
    text += "To: " + to + "\r\n";
    text += "Subject: " + Subject(messages) + "\r\n";
    text += "Message-ID: " + MessageId(messages) + "\r\n";
    for (const Message &message : messages)
        text += "X-Syslogmon-Key: " + message.key + "\r\n";
    text += "Auto-Submitted: auto-generated\r\n"; // so that nobody's holiday notice answers
    text += "MIME-Version: 1.0\r\nContent-Type: text/plain; charset=utf-8\r\n";
    text += "Content-Transfer-Encoding: quoted-printable\r\n\r\n";
    return text + QuotedPrintable(Body(messages));
}

} // namespace sinks
