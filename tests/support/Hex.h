#pragma once

#include <cstddef>
#include <string>
#include <vector>

/** Bytes of an even number of lower-case hexadecimal digits; others end the test program. */
std::vector<unsigned char> fromHex(const std::string& digits);

/** Lower-case hexadecimal digits. */
std::string toHex(const unsigned char* bytes, std::size_t count);
std::string toHex(const std::vector<unsigned char>& bytes);

/** The ten bytes of an extended value. */
std::string toX87(long double value);
