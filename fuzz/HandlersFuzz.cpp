// Feeds frames to the factory and the handlers as the input pump does. The first byte of an input
// configures the instance; frames follow, each behind one byte with its length.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "api/InterfaceDataManager.h"
#include "bench/StillPlatform.h"
#include "ptp/clockitems.h"
#include "ptp/ptpclass.h"
#include "timebase/osipc.h"

namespace {

constexpr std::size_t kReceiveBuffer = 2048;
constexpr std::size_t kMostPorts = 1000;

enum Setting : unsigned char { kIsMaster = 1, kComputesCrcs = 2, kTraces = 4, kNoReceiveTime = 8 };

gPtpTimeDataStruct record{};

void configure(unsigned char settings) {
    InstanceBlock& block = InterfaceDataManager::getInstance()->block;
    block = InstanceBlock{};
    block.cfg.role = (settings & kIsMaster) != 0 ? 1 : 0;
    block.cfg.TxCrcMode = (settings & kComputesCrcs) != 0 ? 1 : 0;
    record = gPtpTimeDataStruct{};
    if (clockItems.size() > kMostPorts) {
        clockItems.clear();
    }
}

/** A Pdelay_Resp received before its request was sent is reported for ever above trace level 0. */
int traceLevelFor(unsigned char settings, const unsigned char* frame) {
    const bool mayReport = wire::messageType(frame) != wire::kPdelayResp;
    return mayReport && (settings & kTraces) != 0 ? 1 : 0;
}

void handle(unsigned char settings, const unsigned char* frame, std::size_t length) {
    static NetworkService<sock> service(kStillInterface);
    std::vector<unsigned char> buffer(kReceiveBuffer, 0);
    std::copy_n(frame, length, buffer.begin());
    DbgTraceLevel = traceLevelFor(settings, buffer.data());
    stillTxTime += 1000;
    PTPMessageFactory factory;
    const std::unique_ptr<PTPMessage> message(
        factory.getPTPMessageInstance(reinterpret_cast<ptpv2hdr_t*>(buffer.data())));
    if (message == nullptr) {
        return;
    }
    message->service = &service;
    message->rxTimestamp = toPtpTime((settings & kNoReceiveTime) != 0 ? 0 : stillTxTime + 500);
    message->frameLength = static_cast<unsigned short>(length);
    message->msgDebugHeader();
    message->processIncoming();
}

}  // namespace

/** Takes the place of the C library's: no input waits. */
extern "C" int usleep(useconds_t /*microseconds*/) {
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    if (std::freopen("/dev/null", "w", stdout) == nullptr) {
        return 1;
    }
    DbgTraceLevel = 0;
    OSipc::map[kStillInterface] = &record;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const unsigned char settings = data[0];
    configure(settings);
    for (std::size_t at = 1; at < size;) {
        const std::size_t length = std::min<std::size_t>(data[at], size - at - 1);
        handle(settings, data + at + 1, length);
        at += 1 + length;
    }
    return 0;
}
