#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

/* Access to tests/data/vectors.json. Whatever is missing or malformed ends the test program with
 * one line that names it: a test must not pass because its vectors were not found. */

/** The vectors of a group, an array that is not empty. */
const nlohmann::json& vectors(const std::string& group);

/** Bytes of an even number of hexadecimal digits. */
std::vector<unsigned char> fromHex(const std::string& digits);

/** Lower-case hexadecimal digits. */
std::string toHex(const unsigned char* bytes, std::size_t count);
std::string toHex(const std::vector<unsigned char>& bytes);

/** The value of {"x87": ten little-endian bytes}. */
long double fromX87(const nlohmann::json& value);

/** The ten bytes of an extended value, as in {"x87": ...}. */
std::string toX87(long double value);

/** 64-bit integers, which the file holds as decimal strings. */
unsigned long long toU64(const nlohmann::json& value);
long long toS64(const nlohmann::json& value);
