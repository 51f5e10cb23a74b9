#pragma once

#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace simulate {

using MacAddress = std::array<std::uint8_t, 6>;

/** What a flood can consist of, for a command line. */
extern const std::vector<std::string> kFloodKinds;

/** One frame of a flood, from its destination address on, of one of kFloodKinds: "sync" of a
 *  foreign master, "identities": the same, each from a new port; "pdelay-req" of a foreign port,
 *  "requesters": the same, each from a new port; "pdelay-resp" to a request that nobody made;
 *  "malformed": random bytes behind the EtherType, of random number. */
std::vector<std::uint8_t> floodFrame(const std::string& kind, const MacAddress& source,
                                     std::uint32_t number, std::mt19937_64& random);

}  // namespace simulate
