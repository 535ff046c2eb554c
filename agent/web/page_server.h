// Serves the page, its data and the metrics over HTTP, on a thread of its own. Only reading: nothing that is asked for
// changes anything.
#ifndef AGENT_WEB_PAGE_SERVER_H
#define AGENT_WEB_PAGE_SERVER_H

#include <memory>
#include <string>

#include "agent/host/layout.h"
#include "agent/settings/web_address.h"
#include "agent/web/deadlines.h"

namespace web {

class PageServer {
  public:
    // `version`: of this program. Throws host::Error when the address cannot be had, or the store not be opened.
    PageServer(const host::Layout &layout, const settings::WebAddress &address,
               const std::string &version, const TimeLimits &limits = {});
    ~PageServer();
    PageServer(const PageServer &) = delete;
    PageServer &operator=(const PageServer &) = delete;

    // A pass was stored; `events_changed`: other events may be registered than before. From any thread; never waits.
    void Wake(bool events_changed = false) const;

  private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

} // namespace web

#endif // AGENT_WEB_PAGE_SERVER_H
