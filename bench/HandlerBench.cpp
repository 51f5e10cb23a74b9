// What the daemon itself adds to the system call that a frame needs anyway: the message handlers
// on a platform that answers at once, and beside them one sendto and one recvmsg on packet sockets
// of the two interfaces TSYN_BENCH_INTERFACE and TSYN_BENCH_PEER, which a cable joins.
#include <benchmark/benchmark.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "StillPlatform.h"
#include "api/DaemonState.h"
#include "api/InterfaceDataManager.h"
#include "autosar/TLVObject.h"
#include "autosar/TlvCrc.h"
#include "ptp/clockitems.h"
#include "ptp/ptpclass.h"
#include "timebase/osipc.h"

namespace {

constexpr unsigned long long kSyncIntervalNs = 125000000;
constexpr unsigned char kAllFlags = 0x3F;
constexpr unsigned short kPort = 3;
constexpr unsigned int kSequence = 0x0123;

InstanceBlock& block() {
    return InterfaceDataManager::getInstance()->block;
}

/** Secured time, status and user data, every header field under the time CRCs. */
void configure(unsigned char role) {
    TSynInstanceConfig& cfg = block().cfg;
    cfg.role = role;
    cfg.EnableAutosarExtensions = 1;
    cfg.TxMode = 1;
    cfg.TxCrcMode = 1;
    cfg.timeSubTlv = 1;
    cfg.statusSubTlv = 1;
    cfg.userDataSubTlv = 1;
    cfg.CrcTimeFlags = kAllFlags;
    for (unsigned int i = 0; i < sizeof cfg.DataIDList; ++i) {
        cfg.DataIDList[i] = static_cast<unsigned char>(0x10 + i);
    }
    block().timeBaseStatus = 0x0C;
    block().userDataLength = 2;
}

NetworkService<sock>& service() {
    static NetworkService<sock> instance(kStillInterface);
    return instance;
}

/** A message as the input pump makes it, with its receive time. */
std::unique_ptr<PTPMessage> received(PTPMessage& sent, unsigned long long rxNs) {
    PTPMessageFactory factory;
    std::unique_ptr<PTPMessage> message(factory.getPTPMessageInstance(sent.header()));
    message->service = &service();
    message->rxTimestamp = toPtpTime(rxNs);
    return message;
}

/** A Sync of a master and its secured Follow_Up. */
struct SentPair {
    SentPair() {
        configure(1);
        sync.service = &service();
        followUp.service = &service();
        wire::store16(sync.data() + wire::kSequenceId, kSequence);
        ptp_time_t tx = toPtpTime(stillTxTime);
        followUp.processOutgoing(&sync, &tx);
    }

    PTPMsgSync sync{0, kPort};
    PTPMsgFollowUp followUp{0};
};

void crcOfFollowUp(benchmark::State& state) {
    SentPair pair;
    const unsigned char* const message = pair.followUp.data();
    for ([[maybe_unused]] auto _ : state) {
        unsigned char crc = timeCrc0(block().cfg, kAllFlags, message);
        benchmark::DoNotOptimize(crc);
        crc = timeCrc1(block().cfg, kAllFlags, message);
        benchmark::DoNotOptimize(crc);
    }
}
BENCHMARK(crcOfFollowUp)->Name("CRCs over a Follow_Up");

void buildFollowUp(benchmark::State& state) {
    SentPair pair;
    for ([[maybe_unused]] auto _ : state) {
        PTPMsgFollowUp followUp(0);
        followUp.service = &service();
        ptp_time_t tx = toPtpTime(stillTxTime);
        benchmark::DoNotOptimize(followUp.processOutgoing(&pair.sync, &tx));
    }
}
BENCHMARK(buildFollowUp)->Name("building a Follow_Up");

void checkFollowUp(benchmark::State& state) {
    constexpr unsigned int kSurplus = 10;
    SentPair pair;
    configure(0);
    TLVObject tlv;
    std::memcpy(tlv.bytes, pair.followUp.data() + wire::kAutosarTlv,
                wire::kMessageBufferSize - wire::kAutosarTlv);
    tlv.count = wire::messageLength(pair.followUp.data()) - wire::kAutosarTlv + kSurplus;
    for ([[maybe_unused]] auto _ : state) {
        if (ProcessIncomingAutoSARTLVObjects(&tlv, pair.followUp.header()) != 1) {
            state.SkipWithError("the Follow_Up was refused");
            break;
        }
    }
}
BENCHMARK(checkFollowUp)->Name("checking a Follow_Up");

void receiveSync(benchmark::State& state) {
    SentPair pair;
    configure(0);
    unsigned long long t2 = stillTxTime;
    for ([[maybe_unused]] auto _ : state) {
        t2 += kSyncIntervalNs;
        if (received(pair.sync, t2)->processIncoming() != 1) {
            state.SkipWithError("the Sync was refused");
            break;
        }
    }
}
BENCHMARK(receiveSync)->Name("receiving a Sync");

void receiveFollowUp(benchmark::State& state) {
    SentPair pair;
    configure(0);
    received(pair.sync, stillTxTime)->processIncoming();
    ClockItemMembersType& item = clockItemOf(pair.followUp.retrievePortIdentity());
    item.initialised = 1;
    unsigned long long now = stillTxTime;
    const gPtpTimeDataStruct& record = *OSipc::instance(kStillInterface);
    for ([[maybe_unused]] auto _ : state) {
        // As if a Sync had come before. The new time makes CRC_Time_0 wrong, which at trace level
        // 0 costs no step more or less.
        now += kSyncIntervalNs;
        item.localTimes.entries[0].ns = now;
        wire::storeTimestamp(pair.followUp.data() + wire::kTimestamp, toPtpTime(now));
        received(pair.followUp, now)->processIncoming();
    }
    if (record.originTime != now) {
        state.SkipWithError("the Follow_Ups were not used");
    }
}
BENCHMARK(receiveFollowUp)->Name("receiving a Follow_Up");

/** The requester's side of exchanges, 500 ns of cable on either way. */
class Requester {
public:
    Requester() {
        request_.service = response_.service = followUp_.service = &service();
        request_.processOutgoing();
        ptp_time_t time{};
        response_.processOutgoing(&request_, &time);
        followUp_.processOutgoing(&response_, &time);
    }

    void exchange() {
        stillTxTime += 8 * kSyncIntervalNs;
        request_.processOutgoing();
        answer(response_, stillTxTime + 500);
        received(response_, stillTxTime + 101000)->processIncoming();
        answer(followUp_, stillTxTime + 100500);
        received(followUp_, stillTxTime + 200000)->processIncoming();
    }

private:
    void answer(PTPMessage& message, unsigned long long ns) {
        wire::store16(message.data() + wire::kSequenceId, wire::sequenceId(request_.data()));
        wire::storeTimestamp(message.data() + wire::kTimestamp, toPtpTime(ns));
    }

    PTPMsgPathDelayReq request_{0, kPort};
    PTPMsgPathDelayResp response_{0};
    PTPMsgPathDelayRespFollowUp followUp_{0};
};

void exchangePdelay(benchmark::State& state) {
    Requester requester;
    for ([[maybe_unused]] auto _ : state) {
        requester.exchange();
    }
    if (OSipc::instance(kStillInterface)->linkDelay < 490) {
        state.SkipWithError("no delay was measured");
    }
}
BENCHMARK(exchangePdelay)->Name("a peer-delay exchange");

/** A packet socket of an interface, with what the daemon asks to be told with each frame. */
int openSocket(const char* interfaceName) {
    const int descriptor = socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interfaceName));
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    setsockopt(descriptor, SOL_PACKET, PACKET_AUXDATA, &on, sizeof on);
    if (bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        std::perror("handler_bench: bind");
        std::exit(1);
    }
    return descriptor;
}

/** Sockets at both ends of the cable and a secured Follow_Up's frame. */
struct Wire {
    Wire()
        : near(openSocket(std::getenv("TSYN_BENCH_INTERFACE"))),
          far(openSocket(std::getenv("TSYN_BENCH_PEER"))) {
        constexpr unsigned char kHeader[] = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x0E, 0x02,
                                             0x00, 0x00, 0x00, 0x00, 0x01, 0x88, 0xF7};
        SentPair pair;
        std::copy(std::begin(kHeader), std::end(kHeader), frame);
        std::copy_n(pair.followUp.data(), sizeof frame - sizeof kHeader, frame + sizeof kHeader);
    }

    bool send() const {
        return ::sendto(near, frame, sizeof frame, 0, nullptr, 0) ==
               static_cast<ssize_t>(sizeof frame);
    }

    int near;
    int far;
    unsigned char frame[14 + 102];
};

Wire& cable() {
    static Wire instance;
    return instance;
}

void callSendto(benchmark::State& state) {
    Wire& ends = cable();
    for ([[maybe_unused]] auto _ : state) {
        if (!ends.send()) {
            state.SkipWithError("sendto failed");
            break;
        }
    }
}
BENCHMARK(callSendto)->Name("sendto");

void callRecvmsg(benchmark::State& state) {
    Wire& ends = cable();
    unsigned char frame[2048];
    alignas(cmsghdr) unsigned char control[256];
    iovec space{frame, sizeof frame};
    const auto takeOne = [&](int flags) {
        msghdr message{};
        message.msg_iov = &space;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        return recvmsg(ends.far, &message, flags) > 0;
    };
    while (takeOne(MSG_DONTWAIT)) {
    }
    for ([[maybe_unused]] auto _ : state) {
        pollfd readable{ends.far, POLLIN, 0};
        if (!ends.send() || poll(&readable, 1, 1000) != 1) {
            state.SkipWithError("no frame came");
            break;
        }
        const auto begin = std::chrono::steady_clock::now();
        takeOne(0);
        const auto end = std::chrono::steady_clock::now();
        state.SetIterationTime(std::chrono::duration<double>(end - begin).count());
    }
}
BENCHMARK(callRecvmsg)->Name("recvmsg")->UseManualTime();

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    for (const char* variable : {"TSYN_BENCH_INTERFACE", "TSYN_BENCH_PEER"}) {
        const char* const name = std::getenv(variable);
        if (name == nullptr || if_nametoindex(name) == 0) {
            std::fprintf(stderr, "handler_bench: no interface in %s; start bench/run\n", variable);
            return 1;
        }
    }
    DbgTraceLevel = 0;
    shm_name = std::string("/") + kStillInterface;
    if (InterfaceDataManager::getInstance() == nullptr ||
        OSipc::instance(kStillInterface) == nullptr) {
        std::fprintf(stderr, "handler_bench: no instance or no shared record in /dev/shm\n");
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
