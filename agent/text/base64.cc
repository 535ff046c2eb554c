#include "agent/text/base64.h"

#include <algorithm>
#include <cstdint>

namespace text {

namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

} // namespace

std::string EncodeBase64(std::string_view bytes)
{
    // Three bytes are four digits. A group that ends early is filled with zero bits for its last
    // digit, and with = for the digits that no bit reaches.
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t count = std::min<size_t>(3, bytes.size() - i);
        uint32_t group = 0;
        for (size_t k = 0; k < 3; ++k)
            group = group << 8U | (k < count ? static_cast<unsigned char>(bytes[i + k]) : 0U);
        for (size_t k = 0; k < 4; ++k)
            text += k <= count ? kDigits[(group >> (18 - 6 * k)) & 0x3FU] : '=';
    }
    return text;
}

std::optional<std::string> DecodeBase64(std::string_view text)
{
    std::string digits;
    for (const char c : text) {
        if (std::string_view(" \t\r\n").find(c) == std::string_view::npos)
            digits += c;
    }
    if (digits.size() % 4 != 0)
        return std::nullopt;
    // A = anywhere else is no digit, and refused as such below.
    const size_t padding = digits.ends_with("==") ? 2 : digits.ends_with("=") ? 1 : 0;
    std::string bytes;
    uint32_t bits = 0;
    // Bits of the last digit that belong to no byte are dropped, whatever they are. Bits that were
    // taken already are shifted out at the top: they are never masked away.
    for (size_t i = 0; i < digits.size() - padding; ++i) {
        const size_t value = kDigits.find(digits[i]);
        if (value == std::string_view::npos)
            return std::nullopt;
        bits = bits << 6U | static_cast<uint32_t>(value);
        // Four digits are three bytes: each but the first completes one.
        if (i % 4 != 0)
            bytes += static_cast<char>(bits >> (6 - 2 * (i % 4)) & 0xFFU);
    }
    return bytes;
}

} // namespace text
