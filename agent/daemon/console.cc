#include "agent/daemon/console.h"

#include <cstdio>

#include "agent/alerts/alert_store.h"
#include "agent/common/alert_text.h"

namespace agent {

namespace {

constexpr int64_t kAtOnce = 1000; // alerts read in one go

} // namespace

Console::Console(const std::filesystem::path &store)
    : database_(store, tarsk::Database::Mode::kReadOnly), printed_(alerts::NewestAlertId(database_))
{
}

void Console::PrintNews()
{
    for (;;) {
        const auto news = alerts::ReadAlerts(database_, printed_, 0, kAtOnce);
        if (news.empty())
            break;
        for (const auto &alert : news)
            printf("%s\n", agent::AlertLine(alert).c_str());
        printed_ = news.back().id;
    }
    fflush(stdout);
}

} // namespace agent
