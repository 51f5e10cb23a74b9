// Lets a node receive frames and send its own in between, as the pumps do. The first byte of an
// input configures the instance. Steps follow: a byte with what happens and how much later, and for
// a received frame one with its length and the frame.
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
#include "wire/FrameTrace.h"

namespace {

constexpr std::size_t kReceiveBuffer = 2048;
constexpr unsigned char kDomain = 0;
constexpr unsigned short kPort = 3;
constexpr unsigned long long kStartNs = 1000000000000;
constexpr unsigned long long kShortestStepNs = 1000;
constexpr unsigned int kTimeSteps = 20;  // each twice the one before, up to half a second
constexpr unsigned long long kWireNs = 500;

enum Setting : unsigned char {
    kIsMaster = 1,
    kComputesCrcs = 2,
    kTraces = 4,
    kNoReceiveTime = 8,
    kSendsSubTlvs = 16,
    kSecuresThem = 32,
    kHasFixedDelay = 64,
    kTracesFrames = 128
};

enum Step : unsigned char { kReceive = 0, kSendRequest = 1, kSendSync = 2, kSendAnnounce = 3 };

gPtpTimeDataStruct record{};

void configure(unsigned char settings) {
    const auto has = [settings](Setting setting) { return (settings & setting) != 0; };
    InstanceBlock& block = InterfaceDataManager::getInstance()->block;
    block = InstanceBlock{};
    block.cfg.role = has(kIsMaster) ? 1 : 0;
    block.cfg.PropagationDelay = has(kHasFixedDelay) ? 300 : 0;
    block.cfg.TxMode = 1;
    block.cfg.TxCrcMode = has(kComputesCrcs) ? 1 : 0;
    block.cfg.EnableAutosarExtensions = has(kSendsSubTlvs) ? 1 : 0;
    block.cfg.timeSubTlv = block.cfg.statusSubTlv = block.cfg.userDataSubTlv =
        has(kSecuresThem) ? 1 : 2;
    block.cfg.CrcTimeFlags = has(kSecuresThem) ? 0x3F : 0;
    block.timeBaseStatus = 0x0C;
    block.userDataLength = 3;
    record = gPtpTimeDataStruct{};
    clockItems.clear();
    stillTxTime = kStartNs;
}

/** A Pdelay_Resp received before its request was sent is reported for ever above trace level 0. */
int traceLevelFor(unsigned char settings, unsigned int type) {
    if (type == wire::kPdelayResp || (settings & kTraces) == 0) {
        return 0;
    }
    return (settings & kTracesFrames) != 0 ? 0x80 : 1;
}

/** A node with the messages that it sends, new for every input. */
struct Node {
    explicit Node(unsigned char wanted) : settings(wanted) {
        for (PTPMessage* message :
             {static_cast<PTPMessage*>(&request), static_cast<PTPMessage*>(&sync),
              static_cast<PTPMessage*>(&announce)}) {
            message->service = &service;
        }
    }

    void receive(const unsigned char* frame, std::size_t length);
    void send(Step step);

    unsigned char settings;
    NetworkService<sock> service{kStillInterface};
    PTPMsgPathDelayReq request{kDomain, kPort};
    PTPMsgSync sync{kDomain, kPort};
    PTPMsgAnnounce announce{kDomain, kPort};
};

void Node::receive(const unsigned char* frame, std::size_t length) {
    std::vector<unsigned char> buffer(kReceiveBuffer, 0);
    std::copy_n(frame, length, buffer.begin());
    DbgTraceLevel = traceLevelFor(settings, wire::messageType(buffer.data()));
    ptp_time_t rxTime = toPtpTime((settings & kNoReceiveTime) != 0 ? 0 : stillTxTime + kWireNs);
    DisplayIOData(kStillInterface, &rxTime, ">>", buffer.data(), static_cast<int>(length));
    PTPMessageFactory factory;
    const std::unique_ptr<PTPMessage> message(
        factory.getPTPMessageInstance(reinterpret_cast<ptpv2hdr_t*>(buffer.data())));
    if (message == nullptr) {
        return;
    }
    message->setArrival(&service, rxTime, static_cast<unsigned short>(length));
    message->msgDebugHeader();
    message->processIncoming();
}

void Node::send(Step step) {
    DbgTraceLevel = 0;
    if (step == kSendRequest) {
        request.processOutgoing();
    } else if (step == kSendSync) {
        sync.processOutgoing();
    } else {
        announce.processOutgoing();
    }
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
    configure(data[0]);
    Node node(data[0]);
    for (std::size_t at = 1; at < size;) {
        const unsigned char what = data[at++];
        const auto step = static_cast<Step>(what & 3);
        stillTxTime += kShortestStepNs << ((what >> 2) % kTimeSteps);
        if (step != kReceive) {
            node.send(step);
        } else if (at < size) {
            const std::size_t length = std::min<std::size_t>(data[at], size - at - 1);
            node.receive(data + at + 1, length);
            at += 1 + length;
        }
    }
    return 0;
}
