#pragma once

#include <cstddef>

namespace tsyn {

/** The CRCs that AUTOSAR sub-TLVs carry; the first four have the numbers of the daemon's report. */
enum class CrcField { kTime0, kTime1, kStatus, kUserData, kOfs };
inline constexpr std::size_t kCrcFieldCount = 5;

const char* crcFieldName(CrcField field);

}  // namespace tsyn
