// A file that is written whole: whoever reads it sees the one before or the new one, and never a part.
#ifndef AGENT_TEXT_WHOLE_FILE_H
#define AGENT_TEXT_WHOLE_FILE_H

#include <filesystem>
#include <string>

namespace text {

// Writes the file under another name in its folder, and then renames it. Everybody may read it. Throws host::Error, and
// leaves what was there, when that fails.
void WriteWhole(const std::filesystem::path &path, const std::string &content);

} // namespace text

#endif // AGENT_TEXT_WHOLE_FILE_H
