#pragma once

#include <array>

#include "tools/common/OwnDescriptor.h"
#include "tools/tsyn/daemon/RecordSource.h"

namespace tsyn {

/** Host and port of a spy provider. */
struct SpyAddress {
    std::string host;
    std::string port;
};

/** Takes HOST, HOST:PORT or an empty text apart; nothing for a port that is none. */
std::optional<SpyAddress> spyAddress(const std::string& text);

/** The record that a daemon's spy provider sends: it answers the sender of the latest datagram,
 *  again and again. Its first datagram of all makes it open the record, which zeroes it once. */
class SpySource : public RecordSource {
public:
    explicit SpySource(SpyAddress address) : address_(std::move(address)) {}

    std::optional<Look> look(double withinS) override;
    std::string name() const override { return address_.host + ":" + address_.port; }
    bool sharesClock() const override { return isOwnHost_; }

private:
    /** With room for a byte too many. */
    struct Datagram {
        std::array<unsigned char, sizeof(gPtpTimeDataStruct) + 1> bytes{};
        std::size_t length = 0;
    };

    bool connect();
    bool ask();
    bool receive(Datagram& datagram);
    std::optional<Look> noAnswer(const std::string& reason);

    SpyAddress address_;
    tools::OwnDescriptor socket_;
    bool isOwnHost_ = false;
    bool isAsked_ = false;
    double firstAskedS_ = 0.0; /**< since when it owes an answer */
    double heardS_ = 0.0;      /**< when it last answered or was asked */
};

}  // namespace tsyn
