#include "profile/PortTable.h"

#include <iterator>
#include <list>
#include <map>

#include "profile/Answers.h"
#include "profile/Masters.h"
#include "ptp/clockitems.h"

namespace {

/** The ports of others, the one heard last in front. */
struct Ports {
    std::list<PortKey> byAge;
    std::map<PortKey, std::list<PortKey>::iterator> places;
};

Ports& ports() {
    static Ports* const made = new Ports;  // threads may still be at work when the process ends
    return *made;
}

bool isFiled(unsigned int type) {
    return type == wire::kSync || type == wire::kFollowUp || type == wire::kPdelayResp ||
           type == wire::kPdelayRespFollowUp;
}

PortKey filedUnder(const unsigned char* message) {
    const unsigned int type = wire::messageType(message);
    const bool answers = type == wire::kPdelayResp || type == wire::kPdelayRespFollowUp;
    return keyOf(answers ? portIdentityAt(message + wire::kRequestingClockIdentity)
                         : sourceOf(message));
}

void moveToFront(std::list<PortKey>::iterator place) {
    std::list<PortKey>& byAge = ports().byAge;
    byAge.splice(byAge.begin(), byAge, place);
}

void forgetOldest() {
    Ports& all = ports();
    if (masters::isBelieved(all.byAge.back())) {
        moveToFront(std::prev(all.byAge.end()));
    }
    forgetClockItem(all.byAge.back());
    all.places.erase(all.byAge.back());
    all.byAge.pop_back();
}

}  // namespace

void port_table::makeRoom(const unsigned char* message, std::size_t limit) {
    if (!isFiled(wire::messageType(message))) {
        return;
    }
    const PortKey key = filedUnder(message);
    if (answers::isOwn(key)) {
        return;
    }
    Ports& all = ports();
    const auto known = all.places.find(key);
    if (known != all.places.end()) {
        moveToFront(known->second);
        return;
    }
    // One place is our own port's. The master believed and one other need two.
    const std::size_t room = limit > 3 ? limit - 1 : 2;
    while (all.byAge.size() >= room) {
        forgetOldest();
    }
    all.byAge.push_front(key);
    all.places[key] = all.byAge.begin();
}
