#pragma once

#include <linux/filter.h>

#include <array>

inline constexpr std::size_t kPtpFilterLength = 13;

/** Receive filter: PTP frames of one domain, untagged or with priority 7 and the VLAN id. */
std::array<sock_filter, kPtpFilterLength> ptpFilter(int vlanId, unsigned char domain);
