// How far one file was read, and by what it is known again: under another name, as a compressed or copied
// file, or as itself although everything about it but its bytes has changed.
#ifndef AGENT_INPUTS_PLACE_H
#define AGENT_INPUTS_PLACE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "agent/inputs/file_identity.h"
#include "agent/inputs/log_content.h"

namespace inputs {

// Some bytes, of which only this is kept.
struct Fingerprint {
    uint64_t length = 0;
    uint64_t hash = 0xcbf29ce484222325U; // of no bytes

    bool operator==(const Fingerprint &) const = default;
};
Fingerprint FingerprintOf(std::string_view bytes);

// Bytes of a first line, and of those before a place, that are looked at.
inline constexpr size_t kLongestHead = 1024;
inline constexpr size_t kLongestTail = 256;

// An offset of the content, with the bytes just before it.
struct Mark {
    uint64_t offset = 0; // 0: none
    Fingerprint tail;

    bool operator==(const Mark &) const = default;
};

struct Place {
    std::string path; // under which the file was last seen
    std::string log;  // the name of the log that it is of: the path that is written to
    FileIdentity identity;
    uint64_t offset = 0; // of its content; everything before it is done with
    Fingerprint head;    // of the first line, as far as it lies before the offset
    Fingerprint tail;    // of the bytes just before the offset
    bool skipping =
        false;        // the offset is within a line that is too long, the rest of which is skipped
    bool all = false; // it was there before the input was: nothing of it is read, whatever it holds
    bool kept = false;   // it is a copy that somebody keeps, of a file that was there, too
    bool packed = false; // the file is compressed, and nobody writes into it
    bool done = false;   // nobody writes into it any longer, and it was read to its end
    bool told = false;   // that what is behind the offset cannot be read, for good
    uint64_t size = 0;   // of the file when it was read last; 0: not known
    Mark
        earlier; // where it was read to some minutes ago, or when there was more than a line for the first time

    // Are there more bytes to compare than those of a first line, which many files can have in common?
    [[nodiscard]] bool IsTelling() const { return offset > head.length + 1; }
    bool operator==(const Place &) const = default;
};

// As it is stored, in JSON; and back. Nothing for a text that is no place.
std::string TextOf(const Place &place);
std::optional<Place> PlaceOf(const std::string &text);

// Moves the place to an offset of the content, by the bytes of the content from `base` on. They reach from
// kLongestTail bytes before the new offset, or from the beginning, up to it at least.
void MovePlace(Place *place, uint64_t offset, uint64_t base, std::string_view bytes);

// The same by the content itself. Throws host::Error.
void MovePlace(Place *place, uint64_t offset, LogContent *content);

// Are the bytes before the place, and the first line, those that were there? An offset of 0 tells nothing.
// Throws host::Error.
bool HoldsPlace(LogContent *content, const Place &place);
// The same of the first line alone.
bool HoldsHead(LogContent *content, const Place &place);

} // namespace inputs

#endif // AGENT_INPUTS_PLACE_H
