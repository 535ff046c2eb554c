// What the fuzz targets share: a module as it has just been loaded, input cut into pieces, and expectations.
#ifndef FUZZ_FUZZ_H
#define FUZZ_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzz {

// Takes an input apart. When it is used up, every piece is empty or 0.
class Input {
  public:
    Input(const uint8_t *data, size_t size) : data_(data), left_(size) {}

    uint8_t Byte();
    uint64_t Number(size_t bytes); // little-endian
    // Up to so many bytes, as the input's next byte (two for more than 255) says.
    std::string Bytes(size_t most);
    // The same without zero bytes and newlines: a line, a keyword.
    std::string Text(size_t most);
    std::string Rest();
    [[nodiscard]] bool IsUsedUp() const { return left_ == 0; }

  private:
    const uint8_t *data_;
    size_t left_;
};

// The module as it has just been loaded, its host without a registry, ready to report. For the targets of the
// module.
void StartOver();

// Ends the process with this message unless the condition holds.
void Expect(bool condition, const std::string &message);

} // namespace fuzz

#endif // FUZZ_FUZZ_H
