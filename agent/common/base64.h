// Base64, as YAML writes bytes.
#ifndef AGENT_COMMON_BASE64_H
#define AGENT_COMMON_BASE64_H

#include <optional>
#include <string>
#include <string_view>

namespace agent {

std::string EncodeBase64(std::string_view bytes);

// Blanks and line ends in it do not count. Nothing when it is not base64, or not padded.
std::optional<std::string> DecodeBase64(std::string_view text);

} // namespace agent

#endif // AGENT_COMMON_BASE64_H
