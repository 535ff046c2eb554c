#include "agent/inputs/copies.h"

#include <cstring>
#include <optional>
#include <set>

#include "agent/host/error.h"
#include "agent/inputs/rotated_names.h"

namespace inputs {

namespace {

// So long it takes at most to write a copy of no size, and each byte of it, at ten megabytes a second.
constexpr int64_t kCopyingNs = int64_t{2} * 1000 * 1000 * 1000;
constexpr int64_t kCopyingByteNs = 100;

// Was the file written as copies are: in one go, or with the time of its original? A log grows while its program goes, so
// that two are not taken for each other that say the same.
bool IsWrittenLikeCopy(const FileLook &look, bool is_packed, const std::string &original)
{
    if (look.identity.birth_ns == 0)
        return true; // the file system does not tell
    const auto of = LookAt(original);
    if (of && of->changed_ns == look.changed_ns)
        return true;
    const int64_t took_ns = look.changed_ns - look.identity.birth_ns;
    // A compressing program gives its file the time of the original in the end.
    if (is_packed)
        return took_ns >= 0;
    return took_ns <= kCopyingNs + kCopyingByteNs * static_cast<int64_t>(look.size);
}

// Can this be a copy of the file, before their bytes are compared? Logs are copied to be emptied, rotated files to be
// compressed, and both by who wants to keep them.
bool MayBeOf(LogContent *copy, const FileLook &look, const FollowedFile &file)
{
    const Place &place = file.place();
    if (!file.is_present)
        return false;
    // What is rotated may itself be a copy of what was copied before.
    const bool is_older = look.identity.birth_ns < place.identity.birth_ns;
    if (file.is_live() || (copy->IsPacked() && IsPackedNameOf(copy->path(), place.path)))
        return !is_older;
    return place.IsTelling() && IsWrittenLikeCopy(look, copy->IsPacked(), place.path);
}

// How the content of a file compares with that of one that it may be a copy of.
enum class Likeness {
    kNone,      // they differ, or there is nothing to compare
    kBeginning, // it is the beginning of that one
    kCutOff,    // the same, and its compressed form is not complete
    kWhole,     // it is all of that one
    kUnknown,   // that one has just gone, or changed
    kHidden,    // that one is there, and cannot be read now
};

// Of an archive that is damaged, nothing more will ever be read.
Likeness LikenessOfUnreadable(const Place &original)
{
    const auto look = LookAt(original.path);
    if (!look || look->identity != original.identity)
        return Likeness::kUnknown;
    return original.packed ? Likeness::kNone : Likeness::kHidden;
}

constexpr size_t kCompared = size_t{64} * 1024;

// Compares a file with one that is followed, both from their beginnings. Throws host::Error when the copy cannot be read.
Likeness Compare(LogContent *copy, FollowedFile *original)
{
    std::string a(kCompared, '\0');
    std::string b(kCompared + 1, '\0'); // one more byte shows whether the source goes on
    std::optional<LogContent> source;
    for (uint64_t at = 0;; at += kCompared) {
        size_t count = 0;
        try {
            count = copy->Read(at, a.data(), kCompared);
        } catch (const host::Error &) {
            if (at == 0)
                throw;
            return Likeness::kCutOff;
        }
        if (count == 0 && at == 0)
            return Likeness::kNone;
        size_t source_count = 0;
        try {
            if (!source)
                source.emplace(original->place().path);
            source_count = source->Read(at, b.data(), b.size());
        } catch (const host::Error &) {
            return LikenessOfUnreadable(original->place());
        }
        const auto look = LookAt(source->fd());
        if (!look || look->identity != original->place().identity)
            return Likeness::kUnknown;
        // What is emptied just now no longer holds what was copied.
        if (source_count < count || memcmp(a.data(), b.data(), count) != 0)
            return original->IsCut() ? Likeness::kUnknown : Likeness::kNone;
        if (count < kCompared)
            return source_count == count ? Likeness::kWhole : Likeness::kBeginning;
    }
}

} // namespace

CopyState Copies::StateOf(const std::string &path, const FileLook &look, SteadyTime now)
{
    if (look.size == 0)
        return CopyState::kInTheMaking;
    const auto known = copies_.find(look.identity);
    if (known == copies_.end() || !IsAsFound(known->second, look))
        return Find(path, look, now);
    if (known->second.is_read)
        return CopyState::kKept;
    return IsToBeKept(known->second, now) ? Confirm(path, known->second.original)
                                          : CopyState::kInTheMaking;
}

// Of an archive it would not be known where the place in it is; it becomes what is left of its original.
bool Copies::IsToBeKept(const CopyOf &copy, SteadyTime now) const
{
    const bool nothing_is_to_come = files_.all().at(copy.original).place().done;
    return copy.is_telling && !copy.is_packed && (nothing_is_to_come || now - copy.since >= kMade);
}

// The original may have been emptied a moment ago.
CopyState Copies::Confirm(const std::string &path, int64_t original)
{
    LogContent copy(path);
    switch (Compare(&copy, &files_.all().at(original))) {
    case Likeness::kBeginning:
    case Likeness::kWhole:
        return CopyState::kKept;
    case Likeness::kUnknown:
        return CopyState::kUnknown;
    default:
        return CopyState::kInTheMaking;
    }
}

bool Copies::IsAsFound(const CopyOf &copy, const FileLook &look) const
{
    if (copy.size != look.size || copy.changed_ns != look.changed_ns)
        return false;
    const auto original = files_.all().find(copy.original);
    const bool is_there =
        original != files_.all().end() && original->second.is_present && !original->second.was_cut;
    return copy.is_read || is_there;
}

CopyState Copies::Find(const std::string &path, const FileLook &look, SteadyTime now)
{
    copies_.erase(look.identity);
    LogContent copy(path);
    const bool is_packed = copy.IsPacked();
    const auto log = names_.LogOfRotated(path);
    for (auto &[number, file] : files_.all()) {
        if (file.place().log != log || !MayBeOf(&copy, look, file))
            continue;
        const Likeness likeness = Compare(&copy, &file);
        if (likeness == Likeness::kUnknown)
            return CopyState::kUnknown;
        if (likeness == Likeness::kHidden)
            return CopyState::kInTheMaking;
        // Of an archive it is not known how many bytes those are.
        const Place &place = file.place();
        const bool is_telling =
            place.IsTelling() && (is_packed || look.size > place.head.length + 1);
        // It can have been copied when it was shorter; but what is rotated is compressed as a whole.
        const bool may_be_shorter = file.is_live() || (is_telling && !is_packed);
        if (likeness == Likeness::kNone || (likeness == Likeness::kBeginning && !may_be_shorter))
            continue;
        copies_[look.identity] = {look.size, look.changed_ns, number, now,
                                  is_packed, is_telling,      false};
        return CopyState::kInTheMaking;
    }
    return CopyState::kNone;
}

// Those that are longer than what was read of it are none any more, and may be all that is left of it.
void Copies::NoteDropped(int64_t number)
{
    const Place &place = files_.all().at(number).place();
    for (auto &[identity, copy] : copies_) {
        const bool was_read = place.done || (!copy.is_packed && copy.size <= place.offset);
        if (copy.original == number)
            copy.is_read = copy.is_telling && was_read;
    }
}

void Copies::ForgetAllBut(const Candidates &candidates)
{
    std::set<FileIdentity> there;
    for (const auto &[path, look] : candidates)
        there.insert(look.identity);
    std::erase_if(copies_, [&](const auto &copy) { return !there.contains(copy.first); });
}

} // namespace inputs
