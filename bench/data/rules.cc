#include "bench/data/rules.h"

#include <iterator>

namespace bench {

namespace {

// Of a vendor's catalogue.
constexpr const char *kSubsystems[] = {"kernel",  "sshd",    "multipathd", "smartd",
                                       "raid",    "ipmi",    "cluster",    "storage",
                                       "network", "postfix", "mysqld",     "watchdog"};
constexpr const char *kParts[] = {"controller",    "power supply", "fan",         "disk",
                                  "memory module", "battery",      "link",        "path",
                                  "volume",        "sensor",       "port",        "node",
                                  "license",       "snapshot",     "replication", "session"};
constexpr const char *kFaults[] = {"has failed",      "error",           "is not responding",
                                   "timeout",         "degraded",        "over temperature",
                                   "below threshold", "was removed",     "checksum mismatch",
                                   "I/O error",       "out of range",    "retry limit reached",
                                   "is offline",      "lost redundancy", "rejected",
                                   "parity error"};

// Phrases that many rules share, put together from these two lists.
constexpr const char *kSubjects[] = {"link state", "write cache", "path check",   "device reset",
                                     "bus scan",   "heart beat",  "mirror write", "queue depth",
                                     "lane",       "firmware"};
constexpr const char *kStates[] = {"went down on",     "was refused by",   "lost quorum at",
                                   "timed out for",    "is unstable on",   "needs service at",
                                   "was disabled for", "exceeded limit on"};

template <size_t Size>
const char *At(const char *const (&list)[Size], size_t index)
{
    return list[index % Size];
}

Rule CatalogueRule(size_t i)
{
    const std::string part = At(kParts, i / 3);
    const std::string number = std::to_string((i * 7) % 997);
    const std::string fault = At(kFaults, i / 5);
    switch (i % 4) {
    case 0:
        return {{part + " " + number + " " + fault, "", ""}};
    case 1:
        return {{At(kSubsystems, i), part + " " + number + " " + fault, ""}};
    case 2:
        return {{At(kSubsystems, i), fault, part + " " + number}};
    default:
        return {{fault, "code " + std::to_string(10000 + i), ""}};
    }
}

Rule ExpressionRule(size_t i)
{
    const std::string number = std::to_string(10 + (i % 90));
    return {{At(kSubsystems, i),
             std::string(At(kParts, i)) + " (unit|slot) " + number + "[0-9]+ " + At(kFaults, i),
             ""}};
}

// A short name of a device, of 3 to 7 bytes; 2,048 different ones.
std::string Identifier(size_t i)
{
    const std::string number = std::to_string(i / 5);
    switch (i % 5) {
    case 0:
        return std::string("sd") + static_cast<char>('a' + (i / 5 % 26)) +
               (i / 5 < 26 ? "" : std::to_string(i / 130));
    case 1:
        return "md" + number;
    case 2:
        return "bond" + number;
    case 3:
        return "CPU" + number;
    default:
        return "eth" + number;
    }
}

std::string Phrase(size_t i)
{
    return std::string(At(kSubjects, i)) + " " + At(kStates, i / std::size(kSubjects));
}

Rule SharedPhraseRule(size_t i)
{
    const size_t phrases = std::size(kSubjects) * std::size(kStates);
    return {{Phrase(i % phrases), Identifier(i), i % 4 == 3 ? At(kSubsystems, i) : ""}};
}

// Of 2 to 5 bytes: an error code, a unit, an abbreviation.
std::string ShortCode(size_t i)
{
    static constexpr const char *kAbbreviations[] = {"ECC", "MCE", "OOM",  "NMI", "TLB", "IRQ",
                                                     "DMA", "PHY", "SAS",  "FC",  "IB",  "HBA",
                                                     "PSU", "BMC", "RAID", "LUN"};
    switch (i % 4) {
    case 0:
        return At(kAbbreviations, i / 4);
    case 1:
        return "E" + std::to_string(1000 + (i * 37 % 9000));
    case 2:
        return "u" + std::to_string(i * 13 % 1000);
    default:
        return std::string(1, static_cast<char>('A' + (i / 4 % 26))) +
               static_cast<char>('0' + (i / 104 % 10));
    }
}

Rule ShortRule(size_t i)
{
    switch (i % 3) {
    case 0:
        return {{ShortCode((4 * i) + 1), ShortCode((4 * i) + 3), ""}};
    case 1:
        return {{ShortCode(4 * i), ShortCode((4 * i) + 2), ""}};
    default:
        return {{ShortCode(4 * i), ShortCode((4 * i) + 2), ShortCode((4 * i) + 3)}};
    }
}

} // namespace

std::vector<Rule> MakeRules(RuleSet set, int count, int expressions)
{
    std::vector<Rule> rules;
    for (int i = 0; i < count; ++i) {
        const auto index = static_cast<size_t>(i);
        if (i >= count - expressions)
            rules.push_back(ExpressionRule(index));
        else if (set == RuleSet::kSharedPhrases)
            rules.push_back(SharedPhraseRule(index));
        else if (set == RuleSet::kShort)
            rules.push_back(ShortRule(index));
        else
            rules.push_back(CatalogueRule(index));
    }
    return rules;
}

} // namespace bench
