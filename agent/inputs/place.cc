#include "agent/inputs/place.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace inputs {

namespace {

// So many bytes at an offset; fewer: the content has no more.
std::string BytesAt(LogContent *content, uint64_t offset, size_t size)
{
    std::string bytes(size, '\0');
    bytes.resize(content->Read(offset, bytes.data(), size));
    return bytes;
}

bool Holds(LogContent *content, uint64_t offset, const Fingerprint &print)
{
    const std::string bytes = BytesAt(content, offset, static_cast<size_t>(print.length));
    return FingerprintOf(bytes) == print;
}

} // namespace

// FNV-1a. Nobody who can write into a log gains anything by bytes of equal hash: he could write the same
// bytes.
Fingerprint FingerprintOf(std::string_view bytes)
{
    uint64_t hash = Fingerprint{}.hash;
    for (const char byte : bytes) {
        hash ^= static_cast<unsigned char>(byte);
        hash *= 0x100000001b3U;
    }
    return {bytes.size(), hash};
}

std::string TextOf(const Place &place)
{
    nlohmann::json json = {
        {"path", place.path},
        {"log", place.log},
        {"device", place.identity.device},
        {"inode", place.identity.inode},
        {"birth", place.identity.birth_ns},
        {"offset", place.offset},
        {"head", {place.head.length, place.head.hash}},
        {"tail", {place.tail.length, place.tail.hash}},
    };
    if (place.identity.generation != 0)
        json["generation"] = place.identity.generation;
    if (place.skipping)
        json["skipping"] = true;
    if (place.all)
        json["all"] = true;
    if (place.kept)
        json["kept"] = true;
    if (place.packed)
        json["packed"] = true;
    if (place.done)
        json["done"] = true;
    if (place.told)
        json["told"] = true;
    if (place.size != 0)
        json["size"] = place.size;
    if (place.earlier.offset != 0)
        json["earlier"] = {place.earlier.offset, place.earlier.tail.length,
                           place.earlier.tail.hash};
    // Names of files can hold any bytes.
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::optional<Place> PlaceOf(const std::string &text)
{
    try {
        const nlohmann::json json = nlohmann::json::parse(text);
        Place place;
        place.path = json.at("path");
        place.log = json.at("log");
        place.identity.device = json.at("device");
        place.identity.inode = json.at("inode");
        place.identity.birth_ns = json.at("birth");
        place.identity.generation = json.value("generation", uint32_t{0});
        place.offset = json.at("offset");
        place.head = {json.at("head").at(0), json.at("head").at(1)};
        place.tail = {json.at("tail").at(0), json.at("tail").at(1)};
        place.skipping = json.value("skipping", false);
        place.all = json.value("all", false);
        place.kept = json.value("kept", false);
        place.packed = json.value("packed", false);
        place.done = json.value("done", false);
        place.told = json.value("told", false);
        place.size = json.value("size", uint64_t{0});
        if (const auto earlier = json.find("earlier"); earlier != json.end())
            place.earlier = {earlier->at(0), {earlier->at(1), earlier->at(2)}};
        return place;
    } catch (const nlohmann::json::exception &) {
        return std::nullopt;
    }
}

void MovePlace(Place *place, uint64_t offset, uint64_t base, std::string_view bytes)
{
    const auto end = static_cast<size_t>(offset - base);
    place->offset = offset;
    if (place->head.length == 0 && base == 0) {
        const std::string_view head = bytes.substr(0, std::min(end, kLongestHead));
        place->head = FingerprintOf(head.substr(0, head.find('\n')));
    }
    const size_t tail_size = std::min(end, kLongestTail);
    place->tail = FingerprintOf(bytes.substr(end - tail_size, tail_size));
}

void MovePlace(Place *place, uint64_t offset, LogContent *content)
{
    const auto head_size = static_cast<size_t>(std::min<uint64_t>(offset, kLongestHead));
    MovePlace(place, head_size, 0, BytesAt(content, 0, head_size));
    const auto tail_size = static_cast<size_t>(std::min<uint64_t>(offset, kLongestTail));
    const uint64_t base = offset - tail_size;
    MovePlace(place, offset, base, BytesAt(content, base, tail_size));
}

bool HoldsPlace(LogContent *content, const Place &place)
{
    return HoldsHead(content, place) &&
           Holds(content, place.offset - place.tail.length, place.tail);
}

bool HoldsHead(LogContent *content, const Place &place)
{
    return place.offset > 0 && Holds(content, 0, place.head);
}

} // namespace inputs
