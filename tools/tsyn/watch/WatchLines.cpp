#include "tools/tsyn/watch/WatchLines.h"

#include <nlohmann/json.hpp>

#include "tools/tsyn/daemon/Counters.h"
#include "tools/tsyn/daemon/DaemonJson.h"
#include "tools/tsyn/daemon/DaemonText.h"

namespace tsyn {

using Json = nlohmann::ordered_json;

std::string watchLine(const Watcher& watcher) {
    std::string note = watcher.note();
    if (!watcher.isFound()) {
        return note;
    }
    return daemonLine(watcher.name(), watcher.daemon()) + (note.empty() ? "" : "  " + note);
}

std::string watchJson(const Watcher& watcher, int utcOffsetS) {
    const double elapsedS = monotonicNowS() - watcher.startS();
    if (!watcher.isFound()) {
        return Json{{"event", "waiting"},
                    {"interface", watcher.name()},
                    {"t_s", elapsedS},
                    {"problem", watcher.problem()}}
            .dump();
    }
    Json json = daemonJson(watcher.name(), watcher.daemon(), watcher.owner(), utcOffsetS);
    json["event"] = "watch";
    json["t_s"] = elapsedS;
    json["began_anew"] = watcher.hasBegunAnew();
    const RecentValues& moved = watcher.history().moved();
    json["moved_ns"] = moved.empty() || !moved.back() ? Json(nullptr) : Json(*moved.back());
    Json perSecond = Json::object();
    const std::vector<Counter> counters = countersOf(watcher.daemon().latest());
    for (std::size_t i = 0; i < counters.size() && i < watcher.perSecond().size(); ++i) {
        perSecond[counters[i].key] = watcher.perSecond()[i];
    }
    json["per_second"] = perSecond;
    return json.dump();
}

}  // namespace tsyn
