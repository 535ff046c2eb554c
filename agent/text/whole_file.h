// A file that is written whole: whoever reads it sees the one before or the new one, and never a part.
//
// People name other things, too: /dev/null, /dev/stdout, a pipe. Those stay what they are.
#ifndef AGENT_TEXT_WHOLE_FILE_H
#define AGENT_TEXT_WHOLE_FILE_H

#include <filesystem>
#include <string>

namespace text {

// Writes the file under another name in its folder, and then renames it. Everybody may read it. A terminal or another
// character device, and a pipe, are written into, also where a link leads to one. Any other link, and what else is no file,
// is left alone: host::Error. Throws that also when it fails, and leaves what was there.
void WriteWhole(const std::filesystem::path &path, const std::string &content);

} // namespace text

#endif // AGENT_TEXT_WHOLE_FILE_H
