#pragma once

#include <optional>
#include <string>

#include "tools/tsyn/doctor/Evidence.h"

namespace tsyn::doctor {

/** How the daemon's time is, whatever the gates say of the way there. */
struct Published {
    std::string state; /**< as `tsyn status` has it where it is good, else that it is not */
    std::optional<bool> isGood; /**< nothing: the record cannot be read */
};

/** By the record and by whether somebody writes it. Pure. */
Published publishedState(const Evidence& evidence);

}  // namespace tsyn::doctor
