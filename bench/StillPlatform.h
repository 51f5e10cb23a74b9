#pragma once

/* Stands in for the network service and the card: every call returns at once, so that a handler's
 * own work is all that is measured. */

/** ns that transmit stamps frames with. */
extern unsigned long long stillTxTime;

inline constexpr char kStillInterface[] = "tsb0";
