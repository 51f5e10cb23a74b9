#include "tools/virtual_i210/RealFunctions.h"

namespace virtual_i210 {

namespace {

void findDescriptorCalls(RealFunctions& functions) {
    findReal(functions.openat, "openat");
    findReal(functions.openat64, "openat64");
    findReal(functions.close, "close");
    findReal(functions.dup, "dup");
    findReal(functions.dup2, "dup2");
    findReal(functions.dup3, "dup3");
    findReal(functions.fcntl, "fcntl");
    findReal(functions.fcntl64, "fcntl64");
    findReal(functions.closeRange, "close_range");
    findReal(functions.ioctl, "ioctl");
    findReal(functions.read, "read");
    findReal(functions.write, "write");
}

void findClockCalls(RealFunctions& functions) {
    findReal(functions.clockGettime, "clock_gettime");
    findReal(functions.clockSettime, "clock_settime");
    findReal(functions.clockGetres, "clock_getres");
    findReal(functions.clockAdjtime, "clock_adjtime");
}

void findSocketCalls(RealFunctions& functions) {
    findReal(functions.socket, "socket");
    findReal(functions.setsockopt, "setsockopt");
    findReal(functions.getsockopt, "getsockopt");
    findReal(functions.send, "send");
    findReal(functions.sendto, "sendto");
    findReal(functions.sendmsg, "sendmsg");
    findReal(functions.recv, "recv");
    findReal(functions.recvfrom, "recvfrom");
    findReal(functions.recvmsg, "recvmsg");
    findReal(functions.recvmmsg, "recvmmsg");
}

RealFunctions findFunctions() {
    RealFunctions functions{};
    findDescriptorCalls(functions);
    findClockCalls(functions);
    findSocketCalls(functions);
    return functions;
}

}  // namespace

const RealFunctions& real() {
    static const RealFunctions functions = findFunctions();
    return functions;
}

}  // namespace virtual_i210
