// Hosts of a fleet without logs and without monitors: each has a store and the deliverer of the daemon, with the sink
// that sends to the servers. For tests that have more hosts than a machine has room for daemons.
//
//   simulated_hosts FOLDER COUNT ALERTS SERVERS
//
// Each host lies below FOLDER, and stores alerts until it has stored so many, over all lives of this program. Says
// "stored" when that is done, and goes on sending until it is ended.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "agent/sinks/deliverer.h"

namespace {

constexpr int kAtMost = 20; // alerts of one transaction

class Host {
  public:
    Host(const std::filesystem::path &root, const std::string &servers)
        : name_(root.filename()), layout_(host::Layout::Below(root))
    {
        layout_.CreateFolders();
        store_ = std::make_unique<host::Store>(layout_.Store());
        // How alerts outlive a power cut is not what is simulated.
        store_->database().Execute("PRAGMA synchronous = OFF");
        host::RegistryTree registry(*store_);
        sinks::SinkRegistry sinks(*store_, registry);
        if (sinks.ReadAll().empty()) {
            sinks::SinkConfig config;
            config.name = "fleet";
            config.kind = &sinks::FindKind("nats");
            config.options = {{"servers", servers}, {"look", "30"}};
            sinks.Add(config);
        }
        deliverer_ = std::make_unique<sinks::Deliverer>(sinks::DelivererOptions{
            layout_, {std::chrono::milliseconds(500), std::chrono::seconds(5)}});
    }

    [[nodiscard]] int64_t Stored() { return alerts::NewestAlertId(store_->database()); }

    void Report(int64_t count)
    {
        int64_t number = Stored();
        host::Transaction transaction(*store_);
        for (int64_t i = 0; i < count; ++i) {
            alerts::Alert alert;
            alert.time_ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                                std::chrono::system_clock::now().time_since_epoch())
                                .count();
            alert.host = name_;
            alert.log_name = "Application";
            alert.source = "SIMULATED";
            alert.event_id = 1;
            alert.count = 1;
            alert.message =
                "Nov 22 10:00:00 " + name_ + " test: number " + std::to_string(++number);
            alerts::AddAlert(*store_, alert);
        }
        transaction.Commit();
        deliverer_->Wake();
    }

  private:
    std::string name_;
    host::Layout layout_;
    std::unique_ptr<host::Store> store_;
    std::unique_ptr<sinks::Deliverer> deliverer_; // ends before the store
};

} // namespace

int main(int argc, char **argv)
{
    if (argc != 5) {
        fprintf(stderr, "usage: simulated_hosts FOLDER COUNT ALERTS SERVERS\n");
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    const int64_t wanted = atoll(argv[3]);
    std::vector<std::unique_ptr<Host>> hosts;
    std::vector<Host *> busy;
    for (int i = 0; i < atoi(argv[2]); ++i) {
        hosts.push_back(std::make_unique<Host>(
            std::filesystem::path(argv[1]) /
                (std::filesystem::path(argv[1]).filename().string() + "-" + std::to_string(i)),
            argv[4]));
        busy.push_back(hosts.back().get());
    }
    std::mt19937 random{std::random_device{}()};
    while (!busy.empty()) {
        const size_t chosen = random() % busy.size();
        const int64_t left = wanted - busy[chosen]->Stored();
        if (left > 0)
            busy[chosen]->Report(
                std::min<int64_t>(left, 1 + static_cast<int64_t>(random() % kAtMost)));
        else
            busy.erase(busy.begin() + static_cast<std::ptrdiff_t>(chosen));
    }
    puts("stored");
    fflush(stdout);
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
}
