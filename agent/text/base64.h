// Base64, as YAML writes bytes.
#ifndef AGENT_TEXT_BASE64_H
#define AGENT_TEXT_BASE64_H

#include <optional>
#include <string>
#include <string_view>

namespace text {

std::string EncodeBase64(std::string_view bytes);

// Blanks and line ends in it do not count. Nothing when it is not base64, or not padded.
std::optional<std::string> DecodeBase64(std::string_view text);

} // namespace text

#endif // AGENT_TEXT_BASE64_H
