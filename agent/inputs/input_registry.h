// The configured inputs, as they stand in the registry.
//
// Key SOFTWARE\KORBIN\TARSKVOSKAR\AGENT\INPUTS\<name>, one for each input:
//
//   value     type    meaning
//   Kind      REG_SZ  "files" or "journal"
//   others    REG_SZ  the options of the kind, under the names that are typed; of an option that can be given
//                     several times, a line each
#ifndef AGENT_INPUTS_INPUT_REGISTRY_H
#define AGENT_INPUTS_INPUT_REGISTRY_H

#include <map>
#include <string>
#include <vector>

#include "agent/host/registry_tree.h"
#include "agent/host/store.h"
#include "agent/inputs/batch.h"
#include "agent/inputs/file_follower.h"
#include "agent/inputs/journal_reader.h"

namespace inputs {

// Set by a command that has changed an input; the daemon reads them again.
inline constexpr char kInputsEvent[] = "Agent_Inputs_Event";
// Set by who wants to know when all was read that is in the inputs now; see Status::inputs_caught_up_ns.
inline constexpr char kCatchUpEvent[] = "Agent_Inputs_Catch_Up_Event";

inline constexpr char kFilesKind[] = "files";
inline constexpr char kJournalKind[] = "journal";

// Of the input that is the customer file: see customer_file.h. Nobody adds one of this name.
inline constexpr char kCustomerInput[] = "customer-file";

struct InputOption {
    const char *name;
    const char *kind; // of which inputs
    bool is_repeated; // can be given several times
    const char *help; // in one line
};
const std::vector<InputOption> &AllInputOptions();
// Throws host::Error, which names all of the kind, when it has none of that name.
const InputOption &FindOption(const std::string &kind, const std::string &name);

struct InputConfig {
    InputId key = 0; // 0: not stored yet
    std::string name;
    std::string kind;
    std::map<std::string, std::vector<std::string>> options;

    // The first value, or nothing but an empty text.
    [[nodiscard]] std::string Value(const std::string &option) const;
    [[nodiscard]] std::vector<std::string> Values(const std::string &option) const;
};

// Each throws host::Error, which says what is allowed: a name, a kind, one value of an option that its kind has, and all of an
// input together.
void CheckInputName(const std::string &name);
void CheckInputKind(const std::string &kind);
void CheckInputValue(const std::string &option, const std::string &value);
void CheckInput(const InputConfig &input);
// The same of one that is to be added: the name of the customer file is taken.
void CheckNewInput(const InputConfig &input);

// As readers take it. `log_charset`: of the monitor.
FollowOptions FollowOptionsOf(const InputConfig &input, const std::string &log_charset);
JournalOptions JournalOptionsOf(const InputConfig &input, const std::string &log_charset,
                                const std::string &own_folder);

class InputRegistry {
  public:
    InputRegistry(host::Store &store, host::RegistryTree &registry)
        : store_(store), registry_(registry)
    {
    }

    // In the order of their creation.
    std::vector<InputConfig> ReadAll();
    // Throws host::Error, which names all inputs, when there is none of that name.
    InputConfig Find(const std::string &name);
    // Adds an input: entries count from now on. Throws host::Error, and changes nothing, when there is one of that
    // name, or something is wrong with it.
    InputConfig Add(InputConfig input, const std::string &log_charset);
    // Creates the key of an input and nothing else; returns it. What is to be read of it is the caller's.
    InputId Create(InputConfig input);
    // Stores other options; it goes on where it was. Of files that it wants only now, and of another journal, entries count
    // from now on. Throws host::Error, and changes nothing, when something is wrong with it.
    void Change(InputConfig input);
    void Remove(const std::string &name);

  private:
    void Write(const InputConfig &input);
    InputId CreateAnew(const InputConfig &input);
    void BeginNewFiles(const InputConfig &before, const InputConfig &input);

    host::Store &store_;
    host::RegistryTree &registry_;
};

} // namespace inputs

#endif // AGENT_INPUTS_INPUT_REGISTRY_H
