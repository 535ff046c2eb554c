// The fixture of tests with a running daemon that has a "/var/log" of its own.
#ifndef TESTS_AGENT_SUPPORT_DAEMON_TEST_H
#define TESTS_AGENT_SUPPORT_DAEMON_TEST_H

#include <chrono>
#include <ctime>
#include <fstream>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "agent/status/status_file.h"
#include "tests/agent/support/command_test.h"

namespace test {

class DaemonTest : public CommandTest {
  protected:
    DaemonTest()
    {
        std::filesystem::create_directory_symlink(AGENT_LIBRARIES, File("lib"));
        std::filesystem::create_directory(File("var-log"));
        // The monitor begins behind what is there when it starts first.
        WriteLine("the log begins");
    }

    // The words that run it with a "/var/log" of its own.
    [[nodiscard]] Words Daemon() const
    {
        return Helper(Root(), {"with-folder", File("var-log"), "/var/log", SYSLOGMOND, "--root",
                               Root(), "--print-alerts"});
    }
    // How long it takes until the status is as wanted, at most half a minute.
    template <typename Wanted>
    bool WaitForStatus(const Child &daemon, const Wanted &wanted) const
    {
        for (const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
             std::chrono::steady_clock::now() < end;
             std::this_thread::sleep_for(std::chrono::milliseconds(2))) {
            const auto status = status::ReadStatus(Layout().run).value_or(status::Status{});
            if (status.pid == daemon.pid() && wanted(status))
                return true;
        }
        return false;
    }
    // Nothing but being told makes a monitor load its table again.
    void ExpectTable(const Child &daemon, int size) const
    {
        EXPECT_TRUE(WaitForStatus(
            daemon, [&](const status::Status &status) { return status.table_size == size; }));
    }
    void WaitUntilRunning(const Child &daemon) const
    {
        EXPECT_TRUE(WaitForStatus(daemon, [](const status::Status &status) {
            return status.state == status::MonitorState::kRunning;
        }));
        Look(); // the first pass begins behind what it finds in the log
    }
    [[nodiscard]] std::string Rules(const std::string &text) const
    {
        WriteFile(File("rules.yaml"), text);
        return File("rules.yaml").string();
    }
    // Writes a line as a syslog daemon does.
    void WriteLine(const std::string &message) const
    {
        const time_t now = time(nullptr);
        tm local{};
        char stamp[32];
        strftime(stamp, sizeof stamp, "%b %e %H:%M:%S", localtime_r(&now, &local));
        std::ofstream(File("var-log/messages"), std::ios::app)
            << stamp << " host kernel: " << message << "\n";
    }
    void Look() const { EXPECT_EQ(0, Syslogmon({"scan", "--wait", "--timeout", "20"}).status); }
    // Writes a line, and has it looked at.
    void Log(const std::string &message) const
    {
        WriteLine(message);
        Look();
    }
    // Those that are stored, oldest first.
    [[nodiscard]] std::vector<nlohmann::json> Alerts() const
    {
        std::vector<nlohmann::json> alerts;
        std::istringstream lines(Syslogmon({"--json", "alerts"}).out);
        for (std::string line; std::getline(lines, line);)
            alerts.push_back(nlohmann::json::parse(line));
        return alerts;
    }
    // The hits of all events: "DISK 1: 2", one line each.
    [[nodiscard]] std::string Hits() const
    {
        std::string text;
        const nlohmann::json list = Json({"event", "list"});
        for (const auto &event : list["events"])
            text += event["source"].get<std::string>() + " " + event["id"].get<std::string>() +
                    ": " + event["hits"].dump() + "\n";
        return text;
    }
};

} // namespace test

#endif // TESTS_AGENT_SUPPORT_DAEMON_TEST_H
