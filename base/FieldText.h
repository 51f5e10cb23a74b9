#pragma once

#include <algorithm>
#include <cstddef>

/** Text of a character field that may lack its terminator. A copy on the stack: the control
 *  functions allocate nothing, so that exhausted memory cannot throw into a host. */
template <std::size_t Size>
class FieldText {
public:
    explicit FieldText(const char (&field)[Size]) : text_{} {
        std::copy(field, std::find(field, field + Size, '\0'), text_);
    }
    const char* c_str() const { return text_; }
    char* data() { return text_; }

private:
    char text_[Size + 1];
};

template <std::size_t Size>
FieldText<Size> fieldText(const char (&field)[Size]) {
    return FieldText<Size>(field);
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
