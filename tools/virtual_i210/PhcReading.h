#pragma once

#include <cstdint>

#include "tools/virtual_i210/State.h"

namespace virtual_i210 {

/** Reads the card's clock as the driver does: it takes some time, and the clock is latched at an
 *  instant in between. */
std::int64_t readPhcNs(CardState& card);

}  // namespace virtual_i210
