// Base64, as YAML writes bytes: how a rules file holds a text that is not UTF-8.
#ifndef AGENT_TEXT_BASE64_H
#define AGENT_TEXT_BASE64_H

#include <optional>
#include <string>
#include <string_view>

namespace text {

// In one line, padded. No bytes give an empty text.
std::string EncodeBase64(std::string_view bytes);

// Blanks and line ends in it do not count: YAML folds a long text over many lines. Nothing when it
// is not base64, or not padded.
std::optional<std::string> DecodeBase64(std::string_view text);

} // namespace text

#endif // AGENT_TEXT_BASE64_H
