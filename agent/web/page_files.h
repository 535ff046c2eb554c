// The files of the page, which are parts of the program. They are in agent/web/page/; the build makes the table.
#ifndef AGENT_WEB_PAGE_FILES_H
#define AGENT_WEB_PAGE_FILES_H

#include <cstddef>
#include <span>

namespace web {

struct PageFile {
    const char *path; // as it is asked for
    const char *type;
    std::span<const unsigned char> content;
};

std::span<const PageFile> AllPageFiles();

// SHA-256 of the one style sheet that stands in the page itself, 32 bytes: by it the content policy lets that sheet in.
std::span<const unsigned char> PageStyleDigest();

} // namespace web

#endif // AGENT_WEB_PAGE_FILES_H
