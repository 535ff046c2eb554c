#include "agent/inputs/copy_compare.h"

#include <cstring>
#include <optional>
#include <string>

#include "agent/host/error.h"

namespace inputs {

namespace {

constexpr size_t kCompared = size_t{64} * 1024;

} // namespace

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
            return Likeness::kUnknown;
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

} // namespace inputs
