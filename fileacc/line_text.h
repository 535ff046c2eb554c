// Small operations on the text of a line.
#ifndef FILEACC_LINE_TEXT_H
#define FILEACC_LINE_TEXT_H

#include <cstring>

// Copies a text into a buffer of `size` bytes (at least 1), cut to fit and always terminated.
inline void CopyCut(const char *text, char *copy, size_t size)
{
    const size_t length = strnlen(text, size - 1);
    memmove(copy, text, length);
    copy[length] = '\0';
}

#endif // FILEACC_LINE_TEXT_H
