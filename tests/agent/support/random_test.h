// Random data for round trips. A failure names the seed; with that seed in SYSLOGMON_TEST_SEED, the
// test does the same again.
#ifndef TESTS_AGENT_SUPPORT_RANDOM_TEST_H
#define TESTS_AGENT_SUPPORT_RANDOM_TEST_H

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace test {

class RandomData {
  public:
    RandomData() : seed_(SeedOf()), engine_(seed_) { printf("SYSLOGMON_TEST_SEED=%u\n", seed_); }

    [[nodiscard]] unsigned seed() const { return seed_; }

    // From 0 to limit - 1.
    size_t Below(size_t limit)
    {
        return std::uniform_int_distribution<size_t>(0, limit - 1)(engine_);
    }
    uint32_t Number() { return static_cast<uint32_t>(engine_()); }
    bool OneIn(size_t count) { return Below(count) == 0; }

    std::string Bytes(size_t max_size)
    {
        std::string bytes(Below(max_size + 1), '\0');
        for (char &byte : bytes)
            byte = static_cast<char>(Below(256));
        return bytes;
    }

    // A text that gives readers trouble, of at most `max_size` bytes: pieces of syntax, blanks,
    // control characters, other scripts, and bytes that are no text at all.
    std::string OddText(size_t max_size, const std::string &without)
    {
        static const std::vector<std::string> pieces = {"a",
                                                        "Z",
                                                        "0",
                                                        "error",
                                                        " ",
                                                        "  ",
                                                        "\t",
                                                        "\"",
                                                        "'",
                                                        "\\",
                                                        "\\n",
                                                        "\\x",
                                                        ": ",
                                                        " #",
                                                        "#",
                                                        "- ",
                                                        "[",
                                                        "]",
                                                        "] ;",
                                                        "{",
                                                        "}",
                                                        ",",
                                                        "&a",
                                                        "*a",
                                                        "!t",
                                                        "%",
                                                        "@",
                                                        "`",
                                                        "|",
                                                        ">",
                                                        "?",
                                                        "~",
                                                        "null",
                                                        "yes",
                                                        "1e3",
                                                        "0x1",
                                                        "=",
                                                        ";",
                                                        "-",
                                                        "hex:",
                                                        "\n",
                                                        "\r",
                                                        "\r\n",
                                                        "\x01",
                                                        "\x1B",
                                                        "\x7F",
                                                        "\xC2\x80",
                                                        "\xC2\x85",
                                                        "\xC3\xA4",
                                                        "\xD0\x96",
                                                        "\xE2\x82\xAC",
                                                        "\xE2\x80\xA8",
                                                        "\xEF\xBB\xBF",
                                                        "\xEF\xBF\xBE",
                                                        "\xF0\x9F\x98\x80",
                                                        "\xFF",
                                                        "\xC3",
                                                        "\xED\xA0\x80",
                                                        "\xC0\x80",
                                                        "\xF4\x90\x80\x80",
                                                        "<<",
                                                        "---",
                                                        "...",
                                                        "!!binary"};
        std::string text;
        for (size_t count = Below(12); count > 0; --count) {
            const std::string &piece = pieces[Below(pieces.size())];
            if (piece.find_first_of(without) == std::string::npos &&
                text.size() + piece.size() <= max_size)
                text += piece;
        }
        return text;
    }

  private:
    static unsigned SeedOf()
    {
        const char *given = getenv("SYSLOGMON_TEST_SEED");
        return given != nullptr ? static_cast<unsigned>(strtoul(given, nullptr, 10))
                                : std::random_device()();
    }

    unsigned seed_;
    std::mt19937 engine_;
};

} // namespace test

#endif // TESTS_AGENT_SUPPORT_RANDOM_TEST_H
