#include "bench/data/log_writer.h"

#include <ctime>

namespace bench {

namespace {

// What a program says, with places for what changes: # number, @ address, % device, $ name.
constexpr const char *kMessages[] = {
    "kernel: [####.######] %: link becomes ready, speed ### Mbps, full duplex",
    "kernel: [####.######] usb #-#: new high-speed USB device number ## using xhci_hcd",
    "kernel: [####.######] audit: type=#### audit(##########.###:####): apparmor=\"ALLOWED\"",
    "kernel: [####.######] device % entered promiscuous mode",
    "kernel: [####.######] nf_conntrack: table usage ###### of ######, dropping nothing",
    "sshd[####]: Accepted publickey for $ from @ port ##### ssh2: ED25519 SHA256:$",
    "sshd[####]: Disconnected from user $ @ port #####",
    "sshd[####]: pam_unix(sshd:session): session opened for user $ by (uid=0)",
    "sshd[####]: Connection closed by authenticating user $ @ port ##### [preauth]",
    "systemd[1]: Started Session #### of user $.",
    "systemd[1]: Starting Cleanup of Temporary Directories for $...",
    "systemd[1]: $.service: Succeeded, consumed ###ms processor time",
    "systemd-logind[###]: New session #### of user $.",
    "systemd-resolved[###]: Using degraded feature set UDP instead of TCP for DNS server @.",
    "CRON[#####]: ($) CMD (/usr/local/bin/collect-$ --quiet >/dev/null 2>&1)",
    "CRON[#####]: pam_unix(cron:session): session closed for user $",
    "postfix/smtpd[####]: connect from unknown[@]",
    "postfix/smtpd[####]: disconnect from unknown[@] ehlo=1 mail=1 rcpt=1 data=1 quit=1 commands=5",
    "postfix/qmgr[####]: $: from=<$@example.org>, size=#####, nrcpt=# (queue active)",
    "postfix/smtp[####]: $: to=<$@example.com>, relay=@:25, delay=#.##, status=sent (250 2.0.0 Ok)",
    "dhclient[###]: DHCPREQUEST for @ on % to @ port 67",
    "dhclient[###]: bound to @ -- renewal in #### seconds.",
    "NetworkManager[###]: <info>  [##########.####] device (%): carrier: link connected",
    "dnsmasq[###]: query[A] $.example.net from @",
    "nginx[####]: @ - - \"GET /api/v2/$/#### HTTP/1.1\" 200 ##### \"-\" \"curl/7.88.1\"",
    "haproxy[####]: @:##### [backend] $/srv## ##/#/#/##/### 200 #### - - ---- ###/###/##/##/#",
    "dockerd[####]: time=\"now\" level=info msg=\"ignoring event\" container=$ "
    "module=libcontainerd",
    "kubelet[####]: I#### ##:##:##.###### reconciler.go:###] operation for volume $ succeeded",
    "snmpd[####]: Connection from UDP: [@]:#####->[@]:161",
    "ntpd[####]: Listen normally on ## % @:123",
    "smartd[####]: Device: /dev/%, SMART Usage Attribute: 194 Temperature_Celsius changed to ##",
    "multipathd[####]: %: add path (uevent), checker msg is \"tur checker reports path is up\"",
    "iscsid[####]: Connection##:0 to [target: iqn.2003-01.$] through [iface: default] is "
    "operational",
    "mysqld[####]: Aborted connection ##### to db: '$' user: '$' host: '@' (Got timeout reading)",
    "java[#####]: INFO  o.a.c.h.Http11NioProtocol - request ###### of $ done in ## ms",
    "auditd[###]: Audit daemon rotating log files",
    "chronyd[###]: Selected source @, offset -0.000###### seconds",
    "rsyslogd[###]: imuxsock: acquired ### messages from $ in ## seconds",
    "crond[####]: (root) INFO (RANDOM_DELAY will be scaled with factor ##% if used.)",
    "ipmievd[###]: Fan ## sensor reading ##### RPM, status normal",
};

constexpr const char *kNames[] = {"alice",  "backup", "carol",    "deploy", "erin", "grafana",
                                  "nagios", "oracle", "postgres", "redis",  "root", "www-data"};
constexpr const char *kDevices[] = {"sda",  "sdb",  "sdc",   "nvme0n1",
                                    "eth0", "eth1", "bond0", "dm-3"};

// A text that a rule's keyword matches.
std::string Instance(const std::string &keyword)
{
    std::string text = keyword;
    const auto replace = [&text](const std::string &from, const std::string &to) {
        const size_t at = text.find(from);
        if (at != std::string::npos)
            text.replace(at, from.size(), to);
    };
    replace("(unit|slot)", "unit");
    replace("[0-9]+", "7");
    return text;
}

} // namespace

LogWriter::LogWriter(RuleSet set, const std::vector<Rule> &rules, double hit_rate, uint64_t seed)
    : set_(set), rules_(rules), hit_rate_(set == RuleSet::kHostile ? 1.0 / 3 : hit_rate),
      random_(seed), time_(time(nullptr))
{
    // From the first second of this month, so that every stamp is of this month.
    struct tm local {};
    localtime_r(&time_, &local);
    local.tm_mday = 1;
    local.tm_hour = local.tm_min = local.tm_sec = 0;
    local.tm_isdst = -1;
    time_ = mktime(&local);
}

int LogWriter::Number(int below)
{
    return static_cast<int>(random_() % static_cast<uint64_t>(below));
}

template <size_t Size>
const char *LogWriter::Pick(const char *const (&list)[Size])
{
    return list[random_() % Size];
}

std::string LogWriter::Fill(const char *text)
{
    std::string filled;
    for (; *text != '\0'; ++text) {
        switch (*text) {
        case '#':
            filled += static_cast<char>('0' + Number(10));
            break;
        case '@':
            filled += "10." + std::to_string(Number(256)) + "." + std::to_string(Number(256)) +
                      "." + std::to_string(Number(256));
            break;
        case '%':
            filled += Pick(kDevices);
            break;
        case '$':
            filled += Pick(kNames);
            break;
        default:
            filled += *text;
        }
    }
    return filled;
}

std::string LogWriter::Hit()
{
    const Rule &rule = rules_[random_() % rules_.size()];
    ++hits_;
    std::string message = Fill("monitord[####]: ");
    for (const std::string &keyword : rule.keywords)
        message += Instance(keyword) + " ";
    return message + Fill("on $, see event ####");
}

std::string LogWriter::Ordinary()
{
    std::string message = Fill(Pick(kMessages));
    if (Number(1000) == 0) {
        while (message.size() < 2500)
            message += Fill(" $=######; ") + Fill(Pick(kMessages));
    }
    return message;
}

// Some keyword of the rules, any that is there.
const std::string &LogWriter::Keyword()
{
    for (;;) {
        const std::string &keyword =
            rules_[random_() % rules_.size()].keywords[static_cast<size_t>(Number(3))];
        if (!keyword.empty())
            return keyword;
    }
}

// Of a phrase and an identifier: both, of different rules; one of them; none.
std::string LogWriter::Apart()
{
    const std::string &phrase = rules_[random_() % rules_.size()].keywords[0];
    const std::string &identifier = rules_[random_() % rules_.size()].keywords[1];
    switch (Number(4)) {
    case 0:
        return Fill("kernel: [####.######] ") + phrase + Fill(" enclosure ##, slot ## at 0x####") +
               Fill(", initiated by $");
    case 1:
        return Fill("monitord[####]: ") + phrase + " " + identifier + Fill(", attempt ### of ###");
    case 2:
        return Fill("kernel: [####.######] ") + identifier +
               Fill(": ##### sectors, queue ###, by $");
    default:
        return Ordinary();
    }
}

std::string LogWriter::Codes()
{
    if (Number(2) == 0)
        return Ordinary();
    return Fill("monitord[####]: unit at @ says ") + Keyword() + Fill(" ### ") + Keyword() +
           Fill(" since ######, taken by $, session ####");
}

std::string LogWriter::Crowded()
{
    std::string message = Fill("monitord[####]: ");
    while (message.size() < 90) {
        std::string piece = Keyword();
        piece.back() = '~';
        message += piece;
    }
    return message;
}

std::string LogWriter::Message()
{
    if (hit_rate_ > 0 && Number(1000000) < static_cast<int>(hit_rate_ * 1000000))
        return Hit();
    switch (set_) {
    case RuleSet::kSharedPhrases:
        return Apart();
    case RuleSet::kShort:
        return Codes();
    case RuleSet::kHostile:
        return Crowded();
    default:
        return Ordinary();
    }
}

std::string LogWriter::Next()
{
    if (++lines_ % 40 == 0 && time_ + 1 < time(nullptr))
        ++time_;
    struct tm local {};
    localtime_r(&time_, &local);
    char stamp[32];
    strftime(stamp, sizeof stamp, "%b %e %H:%M:%S ", &local);
    return stamp + std::string("server-17 ") + Message();
}

} // namespace bench
