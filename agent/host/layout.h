// Where the agent's files are.
//
//                 an install root (--root DIR)   a packaged installation
//   libraries     DIR/lib                        PREFIX/lib/syslogmon/lib
//   store         DIR/state/agent.db             /var/lib/syslogmon/agent.db
//   run time      DIR/run                        /run/syslogmon
//   trace         DIR/log/trace.log              /var/log/syslogmon/trace.log
#ifndef AGENT_HOST_LAYOUT_H
#define AGENT_HOST_LAYOUT_H

#include <filesystem>

namespace host {

// Four folders, absolute, without a trailing slash. A value: whoever needs it keeps a copy.
struct Layout {
    std::filesystem::path root;  // what GetTarskRootPath gives; the libraries are in root/lib
    std::filesystem::path state; // survives a reboot
    std::filesystem::path run;   // named events, mutexes, status; gone after a reboot is fine
    std::filesystem::path log;

    [[nodiscard]] std::filesystem::path Store() const { return state / "agent.db"; }
    [[nodiscard]] std::filesystem::path TraceLog() const { return log / "trace.log"; }
    [[nodiscard]] std::filesystem::path Library(const char *name) const
    {
        return root / "lib" / name;
    }

    // Everything below one folder.
    // Makes a relative path absolute from the folder that is current now. Looks at no file.
    static Layout Below(const std::filesystem::path &root);

    // The layout for a program without --root: the install root in whose bin folder the program
    // lies, or else the packaged installation. Throws Error for a program in the bin folder of an
    // install root whose module is missing: another installation would be worked on in silence.
    static Layout Find();

    // Throws Error when the root is none: neither the module nor a store is below it.
    void CheckRoot() const;

    // Creates the folders for store, run time and trace, for this user alone. Those of an earlier
    // version that others may read are put right. Throws StoreError when one cannot be made.
    void CreateFolders() const;
};

} // namespace host

#endif // AGENT_HOST_LAYOUT_H
