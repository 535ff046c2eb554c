// What the page and programs get: JSON of what there is to be seen, and the metrics. Described in docs/web.md.
//
// On the thread of the server alone, over a connection that can only read. An answer is kept for a second, or until a
// pass is stored, so a page that is open a hundred times costs the store no more than one.
#ifndef AGENT_WEB_ANSWERS_H
#define AGENT_WEB_ANSWERS_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "agent/host/layout.h"
#include "agent/host/registry_tree.h"
#include "agent/host/store.h"
#include "agent/metrics/overview.h"

namespace web {

// Of a query, decoded: "?limit=10&text=disk".
using Query = std::map<std::string, std::string>;

struct Answer {
    unsigned status = 200;
    std::string type = "application/json";
    std::shared_ptr<const std::string> body; // shared with connections that are still being served
};

class Answers {
  public:
    // `version`: of this program. Throws host::StoreError when the store cannot be opened.
    Answers(const host::Layout &layout, std::string version);

    // A path that there is none of gets 404, a query that cannot be used 400, a store that fails 503, each with a JSON
    // object that says why.
    Answer Get(const std::string &path, const Query &query);

    // Answers of before are not given any more. From any thread.
    void NewsCame() { ++news_; }
    // Likewise, and other events may be registered than before: without that, they are read every few seconds.
    void EventsChanged()
    {
        events_changed_ = true;
        NewsCame();
    }

    // What is looked at. For tests.
    [[nodiscard]] const metrics::Lookout &lookout() const { return lookout_; }

    // Of all answers that are kept, with what they were asked by: at most 4 MiB.
    [[nodiscard]] size_t KeptBytes() const;

  private:
    using Clock = std::chrono::steady_clock;
    using Question = std::pair<std::string, Query>; // path and query
    void Keep(const Question &question, Clock::time_point now, const Answer &answer);
    Answer Make(const std::string &path, const Query &query);
    const metrics::Overview &View();
    std::string Overview();
    std::string Events();
    std::string History(const Query &query);
    std::string Alerts(const Query &query);

    std::string version_;
    host::Store store_;
    host::RegistryTree registry_;
    metrics::Lookout lookout_;

    std::atomic<uint64_t> news_ = 0;
    std::atomic<bool> events_changed_ = false;
    uint64_t known_news_ = 0; // of which the kept answers know

    struct Kept {
        Clock::time_point until;
        Answer answer;
    };
    std::map<Question, Kept> kept_;
    const metrics::Overview *view_ = nullptr; // the lookout's
    Clock::time_point view_until_{};
};

} // namespace web

#endif // AGENT_WEB_ANSWERS_H
