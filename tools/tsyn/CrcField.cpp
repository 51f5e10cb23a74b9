#include "tools/tsyn/CrcField.h"

namespace tsyn {

const char* crcFieldName(CrcField field) {
    constexpr const char* kNames[kCrcFieldCount] = {"CRC_Time_0", "CRC_Time_1", "CRC_Status",
                                                    "CRC_UserData", "CRC_OFS"};
    return kNames[static_cast<std::size_t>(field)];
}

}  // namespace tsyn
