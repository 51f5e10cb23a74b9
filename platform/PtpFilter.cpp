#include "platform/PtpFilter.h"

#include "wire/EthernetFrame.h"

namespace {

constexpr unsigned short kLoadHalf = BPF_LD | BPF_H | BPF_ABS;
constexpr unsigned short kLoadByte = BPF_LD | BPF_B | BPF_ABS;
constexpr unsigned short kJumpIfEqual = BPF_JMP | BPF_JEQ | BPF_K;
constexpr unsigned short kReturn = BPF_RET | BPF_K;

constexpr unsigned int kPriority7 = 0xE000;
constexpr unsigned int kWholeFrame = 0xFFFFFFFF;

}  // namespace

//  0  ldh [12]               the kernel strips the tag of a received frame before this runs, so
//  1  jeq TPID       2  8    in practice the branch at 8 decides
//  2  ldh [14]
//  3  jeq 7|VLAN     4  9    any other tag falls through to the domain byte of an untagged frame
//  4  ldh [16]
//  5  jeq PTP        6  12
//  6  ldb [22]
//  7  jeq domain     11 12
//  8  jeq PTP        9  12
//  9  ldb [18]
// 10  jeq domain     11 12
// 11  ret whole frame
// 12  ret nothing
std::array<sock_filter, kPtpFilterLength> ptpFilter(int vlanId, unsigned char domain) {
    const unsigned int tag =
        kPriority7 | (static_cast<unsigned int>(vlanId) & ethernet::kVlanIdMask);
    return {{
        {kLoadHalf, 0, 0, 12},
        {kJumpIfEqual, 0, 6, ethernet::kVlanProtocol},
        {kLoadHalf, 0, 0, 14},
        {kJumpIfEqual, 0, 5, tag},
        {kLoadHalf, 0, 0, 16},
        {kJumpIfEqual, 0, 6, ethernet::kPtpProtocol},
        {kLoadByte, 0, 0, 22},
        {kJumpIfEqual, 3, 4, domain},
        {kJumpIfEqual, 0, 3, ethernet::kPtpProtocol},
        {kLoadByte, 0, 0, 18},
        {kJumpIfEqual, 0, 1, domain},
        {kReturn, 0, 0, kWholeFrame},
        {kReturn, 0, 0, 0},
    }};
}
