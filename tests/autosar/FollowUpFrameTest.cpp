#include <gtest/gtest.h>

#include "api/InterfaceDataManager.h"
#include "platform/NetworkService.h"
#include "tests/support/Daemon.h"
#include "tests/support/Hex.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/Vectors.h"

namespace {

/** Message of the vector with these sub-TLVs. */
Bytes messageOfMask(unsigned int mask) {
    for (const nlohmann::json& vector : vectors("follow_up")) {
        if (vector.at("mask") == mask) {
            return fromHex(vector.at("message"));
        }
    }
    return {};
}

TEST(FollowUpFrame, IsOnTheWireAsEveryVectorTells) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    Sandbox::run({"ip", "link", "set", "tsm0", "address", "00:1b:21:aa:bb:cc"});
    const PeerSocket peer("tsm0peer");
    const Bytes message = messageOfMask(0x15);
    DbgTraceLevel = 0;
    for (const nlohmann::json& vector : vectors("follow_up_frames")) {
        const bool tagged = vector.at("name") != "untagged";
        TSynInstanceConfig config = masterConfig();
        config.VlanID = tagged ? 5 : -1;
        config.VlanPrio = tagged ? 3 : 0;
        InterfaceDataManager::getInstance(&config);
        NetworkService<sock> service("tsm0");
        ptp_time_t time{};
        service.transmit(message.data(), static_cast<int>(message.size()), &time);
        const auto frame = peer.awaitType(8);
        ASSERT_TRUE(frame) << vector;
        EXPECT_EQ(vector.at("bytes"), toHex(frame->bytes)) << vector;
    }
}

}  // namespace
