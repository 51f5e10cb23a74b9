#include "tests/ptp/Handlers.h"

#include <stdexcept>

#include "base/DbgLog.h"
#include "ptp/ReferenceRecord.h"
#include "tests/support/Hex.h"
#include "timebase/PartialRegressionLine.h"
#include "timebase/osipc.h"

namespace {

/** The segment name is the same in every case: each mapping zeroes it. */
gPtpTimeDataStruct& freshRecord() {
    shm_name = std::string("/") + kInterface;
    OSipc::map.clear();
    const StdoutCapture quiet;
    gPtpTimeDataStruct* const record = OSipc::instance(kInterface);
    if (record == nullptr) {
        throw std::runtime_error("no shared time segment");
    }
    return *record;
}

/** Exported state that a handler reads or a case sets, as the library starts with it; only the
 *  trace level is that of the quiet paths. */
void resetGlobals() {
    DbgTraceLevel = 0;
    MasterOrSlave = '?';
    slope_x = slope_y = 0;
    slope_mZ = slope_mN = 1;
    clockItems.clear();
    referenceRecord = {};
    platform() = {};
}

InstanceBlock& freshBlock() {
    resetGlobals();
    InstanceBlock& block = InterfaceDataManager::getInstance()->block;
    block = InstanceBlock{};
    return block;
}

}  // namespace

void Handlers::SetUpTestSuite() {
    static const Sandbox sandbox;
}

// The service derives from an exception, which it is not here.
// NOLINTNEXTLINE(bugprone-throw-keyword-missing)
Handlers::Handlers() : block(freshBlock()), record(freshRecord()), service(kInterface) {}

Handlers::~Handlers() {
    EXPECT_TRUE(platform().isUsedUp()) << "a prepared answer was never asked for";
}

std::unique_ptr<PTPMessage> Handlers::received(const std::vector<unsigned char>& frame,
                                               unsigned long long rxNs) {
    // A copy on the heap of exactly the frame's size: reads beyond it are seen by sanitizers.
    std::vector<unsigned char> bytes(frame);
    PTPMessageFactory factory;
    std::unique_ptr<PTPMessage> message(
        factory.getPTPMessageInstance(reinterpret_cast<ptpv2hdr_t*>(bytes.data())));
    if (message != nullptr) {
        message->service = &service;
        message->rxTimestamp = toPtpTime(rxNs);
        message->frameLength = static_cast<unsigned short>(frame.size());
    }
    return message;
}

unsigned int Handlers::handle(const std::vector<unsigned char>& frame, unsigned long long rxNs) {
    return received(frame, rxNs)->processIncoming();
}

unsigned int Handlers::handleWithExtTime(const std::vector<unsigned char>& frame,
                                         unsigned long long rxNs) {
    platform().extTimes.push_back({});
    return handle(frame, rxNs);
}

void expectError(const std::string& output, const std::string& function, const std::string& text) {
    const std::vector<LogLine> lines = logLines(output);
    ASSERT_EQ(1U, lines.size()) << output;
    EXPECT_EQ(1, occurrences(output, "\n"));
    EXPECT_EQ("ERROR", lines[0].level);
    EXPECT_EQ("ptp/ptpclass.cpp", lines[0].file);
    EXPECT_EQ(function, lines[0].function);
    EXPECT_EQ(text, lines[0].text);
}

std::string image(const gPtpTimeDataStruct& record) {
    return toHex(reinterpret_cast<const unsigned char*>(&record), sizeof record);
}
