#include "tools/virtual_i210/RealFunctions.h"

#include <dlfcn.h>

namespace virtual_i210 {

namespace {

template <typename Function>
void find(Function& function, const char* name) {
    function = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

void findDescriptorCalls(RealFunctions& functions) {
    find(functions.openat, "openat");
    find(functions.openat64, "openat64");
    find(functions.close, "close");
    find(functions.dup, "dup");
    find(functions.dup2, "dup2");
    find(functions.dup3, "dup3");
    find(functions.fcntl, "fcntl");
    find(functions.fcntl64, "fcntl64");
    find(functions.closeRange, "close_range");
    find(functions.ioctl, "ioctl");
    find(functions.read, "read");
    find(functions.write, "write");
}

void findClockCalls(RealFunctions& functions) {
    find(functions.clockGettime, "clock_gettime");
    find(functions.clockSettime, "clock_settime");
    find(functions.clockGetres, "clock_getres");
    find(functions.clockAdjtime, "clock_adjtime");
}

void findSocketCalls(RealFunctions& functions) {
    find(functions.socket, "socket");
    find(functions.setsockopt, "setsockopt");
    find(functions.getsockopt, "getsockopt");
    find(functions.send, "send");
    find(functions.sendto, "sendto");
    find(functions.sendmsg, "sendmsg");
    find(functions.recv, "recv");
    find(functions.recvfrom, "recvfrom");
    find(functions.recvmsg, "recvmsg");
    find(functions.recvmmsg, "recvmmsg");
}

RealFunctions findAll() {
    RealFunctions functions{};
    findDescriptorCalls(functions);
    findClockCalls(functions);
    findSocketCalls(functions);
    return functions;
}

}  // namespace

const RealFunctions& real() {
    static const RealFunctions functions = findAll();
    return functions;
}

}  // namespace virtual_i210
