#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tsyn {

/** What is wrong with the text as a number of bytes in hexadecimal digits, which 0x may precede and
 *  colons part; empty when nothing is. */
std::string hexProblem(const std::string& text, std::size_t leastBytes, std::size_t mostBytes);

/** The bytes of a text without a problem. */
std::vector<unsigned char> hexBytes(const std::string& text);

}  // namespace tsyn
