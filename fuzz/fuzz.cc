#include "fuzz/fuzz.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace fuzz {

uint8_t Input::Byte()
{
    if (left_ == 0)
        return 0;
    --left_;
    return *data_++;
}

uint64_t Input::Number(size_t bytes)
{
    uint64_t number = 0;
    for (size_t i = 0; i < bytes; ++i)
        number |= uint64_t{Byte()} << (8 * i);
    return number;
}

std::string Input::Bytes(size_t most)
{
    const size_t wanted = most > UINT8_MAX ? Number(2) : Byte();
    const size_t length = std::min({wanted, most, left_});
    std::string bytes(data_, data_ + length);
    data_ += length;
    left_ -= length;
    return bytes;
}

std::string Input::Text(size_t most)
{
    std::string text = Bytes(most);
    std::erase_if(text, [](char c) { return c == '\0' || c == '\n'; });
    return text;
}

std::string Input::Rest()
{
    std::string rest(data_, data_ + left_);
    left_ = 0;
    return rest;
}

void Expect(bool condition, const std::string &message)
{
    if (condition)
        return;
    fprintf(stderr, "%s\n", message.c_str());
    abort();
}

} // namespace fuzz
