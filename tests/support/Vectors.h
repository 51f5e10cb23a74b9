#pragma once

#include <nlohmann/json.hpp>
#include <string>

/* Access to tests/data/vectors.json. Whatever is missing or malformed ends the test program with
 * one line that names it: a test must not pass because its vectors were not found. */

/** The vectors of a group, an array that is not empty. */
const nlohmann::json& vectors(const std::string& group);

/** The value of {"x87": ten little-endian bytes}. */
long double fromX87(const nlohmann::json& value);

/** 64-bit integers, which the file holds as decimal strings. */
unsigned long long toU64(const nlohmann::json& value);
long long toS64(const nlohmann::json& value);
