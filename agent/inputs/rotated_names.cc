#include "agent/inputs/rotated_names.h"

#include <algorithm>
#include <string>

namespace inputs {

namespace {

constexpr std::string_view kPacked[] = {".gz", ".xz", ".zst", ".bz2"};
constexpr std::string_view kEndings[] = {"old", "bak", "prev", "save"};
constexpr std::string_view kSeparators = ".-_";

std::string_view WithoutPacking(std::string_view name)
{
    for (const std::string_view ending : kPacked) {
        if (name.ends_with(ending))
            return name.substr(0, name.size() - ending.size());
    }
    return name;
}

// "1", "20261121", "2026-11-21T10:00", "20261121-1795255201"
bool IsNumberOrDate(std::string_view text)
{
    constexpr std::string_view kAllowed = "0123456789TtZ:._+-";
    return !text.empty() && text[0] >= '0' && text[0] <= '9' &&
           text.find_first_not_of(kAllowed) == std::string_view::npos;
}

// ".1", "-20261121", ".old"
bool IsSuffix(std::string_view text)
{
    if (text.empty() || kSeparators.find(text[0]) == std::string_view::npos)
        return false;
    const std::string_view rest = text.substr(1);
    return IsNumberOrDate(rest) ||
           std::find(std::begin(kEndings), std::end(kEndings), rest) != std::end(kEndings);
}

} // namespace

NameKind RotatedNameOf(std::string_view name, std::string_view log)
{
    const std::string_view plain = WithoutPacking(name);
    if (plain.starts_with(log)) {
        const std::string_view suffix = plain.substr(log.size());
        const bool is_packed = plain.size() != name.size();
        if (suffix.empty() ? is_packed : IsSuffix(suffix))
            return NameKind::kRotated;
    }
    const size_t dot = log.rfind('.');
    if (dot == std::string_view::npos || dot == 0)
        return NameKind::kOther;
    const std::string_view stem = log.substr(0, dot);
    const std::string_view ending = log.substr(dot);
    if (plain.size() <= log.size() || !plain.starts_with(stem) || !plain.ends_with(ending))
        return NameKind::kOther;
    const std::string_view middle = plain.substr(dot, plain.size() - log.size());
    return IsSuffix(middle) ? NameKind::kBetween : NameKind::kOther;
}

bool IsNameOfRotated(std::string_view name)
{
    for (size_t length = name.size(); length-- > 1;) {
        if (RotatedNameOf(name, name.substr(0, length)) == NameKind::kRotated)
            return true;
    }
    return false;
}

bool IsPackedNameOf(std::string_view name, std::string_view plain)
{
    return name.size() > plain.size() && WithoutPacking(name) == plain;
}

// Among hundreds of logs, only those whose name is a part of this one are compared.
RotatedName FindLogOf(std::string_view name, const LogNames &logs)
{
    const std::string_view plain = WithoutPacking(name);
    for (size_t length = plain.size(); length > 0; --length) {
        const std::string_view log = plain.substr(0, length);
        if (logs.contains(log) && RotatedNameOf(name, log) == NameKind::kRotated)
            return {NameKind::kRotated, std::string(log)};
    }
    const size_t dot = plain.rfind('.');
    for (size_t length = dot == std::string_view::npos ? 0 : dot; length > 0; --length) {
        std::string log(plain.substr(0, length));
        log += plain.substr(dot);
        if (logs.contains(log) && RotatedNameOf(name, log) == NameKind::kBetween)
            return {NameKind::kBetween, std::move(log)};
    }
    return {};
}

} // namespace inputs
