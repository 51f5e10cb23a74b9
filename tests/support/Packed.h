#pragma once

/** Copy of a member of a packed record, for comparisons and streams: these bind references, which
 *  must not refer to a member that is not aligned. */
template <typename Value>
constexpr Value valueOf(Value member) {
    return member;
}
