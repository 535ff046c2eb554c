// The administrator's customer file while there are inputs. The module's is the spool then, so that file is an input
// itself, of the name "customer-file". With the last of the other inputs it becomes the module's again.
//
//   C1  It goes over with its place, and comes back with it: each line counts once.
//   C2  What the administrator has set is kept as it was typed, in the value CustomerFile of the agent's key.
//   C3  An input of this name that was given options of its own does not come back: the module has none of them.
#ifndef AGENT_INPUTS_CUSTOMER_FILE_H
#define AGENT_INPUTS_CUSTOMER_FILE_H

#include <cstdint>
#include <optional>
#include <string>

#include "agent/host/registry_tree.h"
#include "agent/host/store.h"
#include "agent/inputs/input_registry.h"

namespace inputs {

// How far the module has read a file, as it keeps it: the beginnings of the first line and of the last one that it has
// checked, and where that begins; -1: none was checked.
struct ModulePlace {
    std::string head_line;
    int64_t position = -1;
    std::string content;
};

class CustomerFile {
  public:
    CustomerFile(host::Store &store, host::RegistryTree &registry)
        : store_(store), registry_(registry)
    {
    }

    // Is this input the customer file, and nothing else (C3)?
    [[nodiscard]] bool Is(const InputConfig &input);
    // Are there inputs beside it?
    [[nodiscard]] bool HasOthers();

    // The administrator has set this path; empty: none. It becomes an input, in the place of one that was set before.
    //   place  where the module stood in it; without one it begins at its end, as with a file that was just set
    // Returns what is missing when the place is found in none of its files. Nothing is committed.
    std::optional<Loss> Set(const std::string &path, const std::optional<ModulePlace> &place);

    // Can it go back to the module: is all that is unread of it in the file of its own name?
    [[nodiscard]] bool CanReturn();

    // The path, and where the module is to go on. The input is removed. Nothing: it cannot go back yet. An empty path:
    // there is no customer file. Nothing is committed.
    struct Returned {
        std::string path;
        ModulePlace place;
    };
    std::optional<Returned> TakeBack();

  private:
    std::optional<InputConfig> FindInput();
    // The path, and its place; a place with no identity when nothing of it was read.
    struct Unread {
        std::string path;
        Place place;
    };
    std::optional<Unread> FindUnread();

    host::Store &store_;
    host::RegistryTree &registry_;
};

} // namespace inputs

#endif // AGENT_INPUTS_CUSTOMER_FILE_H
