#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

/** Text of a character field that may lack its terminator. */
template <std::size_t Size>
std::string fieldText(const char (&field)[Size]) {
    return {field, std::find(field, field + Size, '\0')};
}

/** Copies text into a field, cut to what fits before the terminator. */
template <std::size_t Size>
void setFieldText(char (&field)[Size], const char* text) {
    std::size_t i = 0;
    for (; i < Size - 1 && text[i] != '\0'; ++i) {
        field[i] = text[i];
    }
    field[i] = '\0';
}
