#include <algorithm>
#include <cstring>
#include <memory>

#include "api/DaemonState.h"
#include "base/DbgLog.h"
#include "include/gPtpTimeData.h"
#include "tests/autosar/AutosarInstance.h"
#include "tests/support/Hex.h"
#include "tests/support/Seed.h"
#include "timebase/osipc.h"

namespace {

class TlvReception : public AutosarInstance {
protected:
    TlvReception() : message(securedMessage()) {}

    Verdict process() {
        FollowUp followUp(message);
        return AutosarInstance::process(followUp.receivedTlv(), followUp);
    }

    std::string words() const {
        std::string text;
        for (unsigned int i = 0; i < std::min(4U, block.subTlvCount); ++i) {
            text +=
                std::to_string(block.subTlvCrcKinds[i]) + (block.subTlvValid[i] != 0 ? "+" : "-");
        }
        return text;
    }

    /** Replaces the sub-TLVs and adjusts both lengths. */
    void setSubTlvs(const std::string& digits) {
        const Bytes subTlvs = fromHex(digits);
        message.resize(86);
        message.insert(message.end(), subTlvs.begin(), subTlvs.end());
        wire::store16(message.data() + 2, static_cast<unsigned int>(message.size()));
        wire::store16(message.data() + 78, static_cast<unsigned int>(6 + subTlvs.size()));
    }

    Bytes message;
};

void expectEntries(const nlohmann::json& out, const InstanceBlock& block) {
    EXPECT_EQ(out.at("count").get<unsigned int>(), block.subTlvCount);
    for (std::size_t i = 0; i < std::min<std::size_t>(4, out.at("words").size()); ++i) {
        EXPECT_EQ(out.at("words")[i].get<unsigned int>(), block.subTlvCrcKinds[i]) << i;
        EXPECT_EQ(out.at("valid")[i].get<unsigned int>(), block.subTlvValid[i]) << i;
    }
}

void expectInstance(const nlohmann::json& instance, const InstanceBlock& block) {
    EXPECT_EQ(instance.at("CrcTimeFlags(340)").get<int>(), block.cfg.CrcTimeFlags);
    EXPECT_EQ(instance.at("status(380)").get<int>(), block.timeBaseStatus);
    EXPECT_EQ(instance.at("userDataLength(388)").get<int>(), block.userDataLength);
    EXPECT_EQ(instance.at("userBytes(389)"), toHex(block.userBytes, 3));
}

TEST_F(TlvReception, IsAsEveryVectorTells) {
    int called = 0;
    for (const nlohmann::json& vector : vectors("autosar_reception")) {
        const nlohmann::json& out = vector.at("out");
        if (!out.at("called").get<bool>()) {
            continue;
        }
        SCOPED_TRACE(vector.dump());
        ++called;
        block = InstanceBlock{};
        const Bytes ids = fromHex(vector.at("DataIDList"));
        std::copy(ids.begin(), ids.end(), block.cfg.DataIDList);
        block.cfg.TxCrcMode = vector.at("TxCrcMode");
        DbgTraceLevel = vector.at("DbgTraceLevel");
        FollowUp followUp(fromHex(vector.at("message")));
        const TLVObject tlv = followUp.receivedTlv();
        EXPECT_EQ(out.at("tlvLength").get<unsigned int>(), tlv.count);
        Verdict verdict;
        printedBy([&] { verdict = AutosarInstance::process(tlv, followUp); });
        EXPECT_EQ(out.at("result") == "exception" ? Verdict()
                                                  : Verdict(out.at("result").get<unsigned int>()),
                  verdict);
        expectEntries(out, block);
        if (out.contains("instance")) {
            expectInstance(out.at("instance"), block);
        }
    }
    EXPECT_EQ(11, called);
}

/** A wrong CRC, its offset in the message and the entry that it belongs to. */
struct WrongCrc {
    std::size_t offset;
    unsigned int entry;
};

constexpr WrongCrc kWrongCrcs[] = {{89, 0}, {90, 1}, {94, 2}, {101, 3}};

TEST_F(TlvReception, AWrongCrcAtTraceLevel0ClearsItsFlagAlone) {
    for (const int level : {0, -1}) {
        DbgTraceLevel = level;
        for (const WrongCrc& wrong : kWrongCrcs) {
            message = securedMessage();
            message[wrong.offset] ^= 0x01;
            EXPECT_EQ("", printedBy([&] { EXPECT_EQ(Verdict(0), process()); }));
            EXPECT_EQ(4U, block.subTlvCount);
            for (unsigned int i = 0; i < 4; ++i) {
                EXPECT_EQ(i == wrong.entry ? 0 : 1, block.subTlvValid[i]) << wrong.offset;
            }
        }
    }
}

TEST_F(TlvReception, AWrongCrcAboveTraceLevel0EndsInTheErrorPathWithTwoLines) {
    DbgTraceLevel = 1;
    MasterOrSlave = '2';
    for (const WrongCrc& wrong : kWrongCrcs) {
        message = securedMessage();
        message[wrong.offset] ^= 0x01;
        const std::string output = printedBy([&] { EXPECT_EQ(Verdict(), process()); });
        EXPECT_EQ(0U, output.find("2ProcessIncomingAutoSARTLVObjects(")) << output;
        EXPECT_NE(std::string::npos,
                  output.find("): validation failed!\n"
                              "2get: FATAL internal error at 'const T& get()'\n"))
            << output;
        EXPECT_EQ(0, block.subTlvValid[wrong.entry]) << "recorded all the same";
        EXPECT_EQ(2, block.userDataLength);
    }
}

TEST_F(TlvReception, EveryBitOfTheSecuredContentIsSecured) {
    for (const std::size_t offset : {88, 89, 90, 93, 94, 97, 98, 99, 100, 101}) {
        for (int bit = 0; bit < 8; ++bit) {
            message = securedMessage();
            message[offset] ^= static_cast<unsigned char>(1 << bit);
            EXPECT_EQ(Verdict(0), process()) << offset << ' ' << bit;
        }
    }
}

TEST_F(TlvReception, EveryBitOfTheCoveredHeaderFieldsIsSecured) {
    for (const std::size_t offset : {3, 4, 8, 15, 28, 29, 30, 31, 34, 39, 40, 43}) {
        for (int bit = 0; bit < 8; ++bit) {
            FollowUp followUp(securedMessage());
            const TLVObject tlv = followUp.receivedTlv();
            followUp.buffer[offset] ^= static_cast<unsigned char>(1 << bit);
            EXPECT_EQ(Verdict(0), AutosarInstance::process(tlv, followUp)) << offset << ' ' << bit;
        }
    }
}

TEST_F(TlvReception, ADataIdListOfAnotherPeerMakesEveryEntryInvalid) {
    block.cfg.DataIDList[3] = 0x44;
    EXPECT_EQ(Verdict(0), process());
    EXPECT_EQ("0-1-2-3-", words());
}

TEST_F(TlvReception, UnsecuredFormsAreTakenWithoutAnEntryWhateverTheirLastByte) {
    setSubTlvs(
        "5102ac99"
        "6105030a0b0c77");
    block.subTlvCount = 9;
    EXPECT_EQ(Verdict(1), process());
    EXPECT_EQ(0U, block.subTlvCount);
    EXPECT_EQ(0xAC, block.timeBaseStatus);
    EXPECT_EQ(3, block.userDataLength);
    EXPECT_EQ("0a0b0c", toHex(block.userBytes, 3));
}

TEST_F(TlvReception, TimeCrcsAreCheckedWithTheReceivedFlags) {
    block.cfg.CrcTimeFlags = 0x15;
    setSubTlvs("2803009898");
    EXPECT_EQ(Verdict(1), process());
    EXPECT_EQ("0+1+", words());
    EXPECT_EQ(0x00, block.cfg.CrcTimeFlags);
}

/** The bytes of a block, packed and without padding. */
std::string imageOf(const InstanceBlock& block) {
    return toHex(reinterpret_cast<const unsigned char*>(&block), sizeof block);
}

TEST_F(TlvReception, OfAnotherOrganisationChangesNothing) {
    const InstanceBlock before = block;
    for (const std::size_t offset : {80, 81, 82}) {
        message = securedMessage();
        message[offset] ^= 0x01;
        EXPECT_EQ(Verdict(1), process());
        EXPECT_EQ(imageOf(before), imageOf(block)) << offset;
    }
}

TEST_F(TlvReception, TypeAndSubTypeOfTheTlvAreNotChecked) {
    for (const std::size_t offset : {76, 77, 83, 84, 85}) {
        message = securedMessage();
        message[offset] ^= 0xFF;
        EXPECT_EQ(Verdict(1), process()) << offset;
        EXPECT_EQ("0+1+2+3+", words()) << offset;
    }
}

TEST_F(TlvReception, CountGoesOnAboveFourAndEntriesStopAtFour) {
    std::string subTlvs;
    for (int i = 0; i < 20; ++i) {
        subTlvs += i == 3 ? "50020100" : "50020171";
    }
    setSubTlvs(subTlvs);
    EXPECT_EQ(Verdict(0), process());
    EXPECT_EQ(20U, block.subTlvCount);
    EXPECT_EQ("2+2+2+2-", words());
}

TEST_F(TlvReception, AWrongCrcBehindTheFourthEntryStillCounts) {
    setSubTlvs(
        "50020171"
        "50020171"
        "50020171"
        "50020171"
        "50020100");
    EXPECT_EQ(Verdict(0), process());
    EXPECT_EQ(5U, block.subTlvCount);
    EXPECT_EQ("2+2+2+2+", words());
}

/** A host that asks for the time of a running slave. */
class ReportToHost : public TlvReception {
protected:
    ReportToHost() {
        OSipc::map["tsm0"] = &record_;
        std::strncpy(block.cfg.interfaceName, "tsm0", sizeof block.cfg.interfaceName - 1);
        runningState = 1;
    }
    ~ReportToHost() override {
        OSipc::map.clear();
        runningState = 0;
    }

    void ask() {
        ZebEthTSynInterface_GetCurrentTime(0, nullptr, nullptr, nullptr, nullptr, nullptr, &status,
                                           report.get(), userData.get());
    }

    // On the heap, so that a copy beyond them is seen by the sanitizer.
    std::unique_ptr<TSynSubTlvReport> report = std::make_unique<TSynSubTlvReport>();
    std::unique_ptr<TSynUserData> userData = std::make_unique<TSynUserData>();
    unsigned int status = 0;

private:
    gPtpTimeDataStruct record_{};
};

TEST_F(ReportToHost, HoldsWhatTheFollowUpCarried) {
    process();
    ask();
    EXPECT_EQ(4U, report->count);
    for (unsigned int i = 0; i < 4; ++i) {
        EXPECT_EQ(i, report->crcKinds[i]);
        EXPECT_EQ(1, report->valid[i]);
    }
    EXPECT_EQ(1U, status);
    EXPECT_EQ(2, userData->length);
    EXPECT_EQ("112200", toHex(userData->bytes, 3));
}

TEST_F(ReportToHost, CopiesAtMostFourEntriesAndThreeUserBytes) {
    setSubTlvs(
        "50020171"
        "50020171"
        "50020171"
        "50020171"
        "50020171"
        "6105c8a1a2a300");
    process();
    ask();
    EXPECT_EQ(5U, report->count);
    EXPECT_EQ(2U, report->crcKinds[3]);
    EXPECT_EQ(200, userData->length);
    EXPECT_EQ("a1a2a3", toHex(userData->bytes, 3));
}

/** What one instance builds, an instance with the same data IDs finds valid. */
TEST_F(TlvReception, AcceptsWhateverThisLibraryBuilds) {
    std::mt19937_64 random = seededGenerator();
    const auto byte = [&random] { return static_cast<unsigned char>(random()); };
    for (int round = 0; round < 2000; ++round) {
        block.cfg.CrcTimeFlags = byte();
        block.timeBaseStatus = byte();
        block.userDataLength = byte();
        for (unsigned char& id : block.cfg.DataIDList) {
            id = byte();
        }
        FollowUp followUp(securedMessage());
        for (std::size_t at = 4; at < 44; ++at) {
            followUp.buffer[at] = byte();
        }
        // The length is covered, so it stands in the header before the CRCs are made.
        built(followUp, 0x0B);
        const Bytes tlvs = built(followUp, 0x0B);
        std::copy(tlvs.begin(), tlvs.end(), followUp.buffer + 44);
        EXPECT_EQ(Verdict(1), AutosarInstance::process(followUp.receivedTlv(), followUp)) << round;
        EXPECT_EQ("0+1+2+3+", words());
    }
}

}  // namespace
