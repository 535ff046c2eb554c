#include "agent/events/event_checks.h"

#include <algorithm>
#include <cstring>

#include "agent/events/expressions.h"
#include "platform/contract.h"
#include "platform/monitor_entry.h"

namespace events {

namespace {

// The record of a source name in a product's "Source" value: so many bytes, then two texts, each
// with its zero byte. Records follow each other without a gap.
constexpr size_t kRecordFieldSize = 4;

bool AllEmpty(const EventRecord &event)
{
    return event.policy.regex.empty() &&
           std::all_of(event.keywords.begin(), event.keywords.end(),
                       [](const std::string &keyword) { return keyword.empty(); });
}

// With toupper, byte by byte, as the monitor's own filter does it.
std::string Upper(std::string text)
{
    for (char &c : text)
        c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return text;
}

// Does a product's "Source" value name the source? Names in it count in upper case, the source as
// it is written: so a source with a small letter in its name is never left out. That is how the
// monitor filters, and the answer here must be the same. A value that ends within a record names
// what came before.
bool Names(const std::string &data, const std::string &source)
{
    for (size_t pos = 0; pos < data.size();) {
        pos += kRecordFieldSize;
        if (pos >= data.size())
            return false;
        pos += strlen(data.c_str() + pos) + 1; // a text of no interest
        if (pos >= data.size())
            return false;
        const std::string name = data.c_str() + pos;
        if (Upper(name) == source)
            return true;
        pos += name.size() + 1;
    }
    return false;
}

// As the product library tells the monitor: without a value, or with one of another size, it is.
bool IsSetUp(host::RegistryTree &registry, host::KeyId product)
{
    const auto value = registry.Get(product, kProductSetupValue);
    uint32_t state = 1;
    if (value && value->data.size() == sizeof state)
        memcpy(&state, value->data.data(), sizeof state);
    return state != 0;
}

// What can be said of one keyword without a line at hand.
void DoubtKeyword(const StoredEvent &stored, size_t number, bool fault_tolerant,
                  std::vector<EventDoubt> *doubts)
{
    const std::string &keyword = stored.event.keywords[number];
    const std::string which = "its keyword " + std::to_string(number + 1) + " \"" + keyword + "\"";
    const std::string change = "change it with " + SetCommand(stored, "-k TEXT");
    if (keyword.find('\n') != std::string::npos)
        doubts->push_back({which + " holds a line end, which no line does", change});
    if (keyword.find(kSyslogIdentifier) != std::string::npos)
        doubts->push_back({which + " holds " + kSyslogIdentifier +
                               ", and lines of the system log with that text are the agent's own, "
                               "which are skipped",
                           change});
    if (fault_tolerant) {
        if (const auto fault = FaultOfExpression(keyword))
            doubts->push_back({which + ": " + fault->cause, fault->advice + "; " + change});
    } else if (LooksLikeExpression(keyword)) {
        doubts->push_back(
            {which + " looks like a regular expression, but is looked for as it "
                     "stands, because this is no fault-tolerant server",
             "write plain text, of which an event can have three pieces, or syslogmon "
             "set fault-tolerant on where it is one"});
    }
}

} // namespace

std::string NameOf(const StoredEvent &stored)
{
    return stored.event.key.source + " " + stored.id_text;
}

// The source in quotes, since a blank may be in it. The ID is the number, which names the event
// even when its key is written in another way.
std::string SetCommand(const StoredEvent &stored, const std::string &option)
{
    return "syslogmon event set '" + stored.event.key.source + "' " +
           FormatEventId(stored.event.key.id) + " " + option;
}

std::vector<EventDoubt> DoubtsOf(const StoredEvent &stored, bool fault_tolerant)
{
    std::vector<EventDoubt> doubts;
    const EventRecord &event = stored.event;
    if ((event.hours & kAllHours) == 0)
        doubts.push_back({"it is watched in no hour of the day",
                          "give it hours with " + SetCommand(stored, "--hours all")});
    if (event.report_count < 1)
        doubts.push_back({"its report count is " + std::to_string(event.report_count),
                          "give it one with " + SetCommand(stored, "-n 1")});
    if (event.key.source == kWithheldSource)
        doubts.push_back({"reports of the source " + std::string(kWithheldSource) + " are withheld",
                          "register the event under another source"});
    for (size_t k = 0; k < event.keywords.size(); ++k)
        DoubtKeyword(stored, k, fault_tolerant, &doubts);
    return doubts;
}

std::optional<std::string> ProductThatFilters(host::RegistryTree &registry,
                                              const std::string &source)
{
    const auto products = registry.Find(host::kRootKey, kAlertReportKey);
    if (!products)
        return std::nullopt;
    for (const std::string &name : registry.SubKeys(*products)) {
        const auto product = registry.Find(*products, name);
        // It can go between the list and the look: no snapshot is held here.
        if (!product || IsSetUp(registry, *product))
            continue;
        const auto data = registry.Get(*product, kProductSourceValue);
        if (data && Names(data->data, source))
            return name;
    }
    return std::nullopt;
}

EventDoubt WhyLeftOut(host::RegistryTree &registry, const StoredSource &source,
                      const StoredEvent &stored)
{
    // From what concerns the whole source to what concerns the event alone: mending an event of a
    // source that is left out would change nothing. The last reason is what remains: the table was
    // full before it came to this one.
    if (source.is_new_application_type)
        return {"its source reports under a type of its own (NEWAPPLICATIONTYPE)",
                "nothing; another component reports it"};
    if (const auto product = ProductThatFilters(registry, source.name))
        return {"the product " + *product + ", which reports under its source, is not set up",
                "set the product up, or register the event under a source that is not written all "
                "in capital letters"};
    if (!stored.problem.empty())
        return {"it cannot be loaded: " + stored.problem,
                "syslogmon event remove '" + source.name + "' " +
                    FormatEventId(stored.event.key.id) + ", then add it with all its values"};
    if (AllEmpty(stored.event))
        return {"it has no keyword", "give it one with " + SetCommand(stored, "-k TEXT")};
    return {"the monitor has room for " + std::to_string(kMaxEntries) + " events only",
            "remove events that are not needed"};
}

} // namespace events
