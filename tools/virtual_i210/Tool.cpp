#include <CLI/CLI.hpp>
#include <cinttypes>
#include <cstdio>
#include <functional>
#include <map>

#include "tools/virtual_i210/VirtualI210.h"

/** Shows the virtual cards of VIRTUAL_I210 and gives orders to them. */

namespace {

using virtual_i210::FaultOrder;

void showCard(const virtual_i210::Card& card) {
    const auto counters = virtual_i210::counters(card.ifName);
    const std::uint64_t now = virtual_i210::rawNowNs();
    std::printf("%s phc %d time %" PRIu64 " ns rate %.3f ppb adjusted %.3f ppb wander %.3f ppb\n",
                card.ifName.c_str(), card.phcIndex,
                *virtual_i210::truePhcNs(card.ifName.c_str(), now), card.ratePpb,
                card.adjustmentPpb, card.wanderPpb);
    std::printf("  granularity %u ns, cable %u ns, jitter %u ns, tx stamps %s, rx filter %u%s%s\n",
                card.granularityNs, card.cableNs, card.jitterNs, card.txStampsOn ? "on" : "off",
                card.rxFilter, card.linkDown ? ", link down" : "",
                card.phcHidden ? ", clock hidden" : "");
    std::printf("  sent %" PRIu64 " PTP frames, %" PRIu64 " of them events; swallowed %" PRIu64
                "; timestamps: %" PRIu64 " tx, %" PRIu64 " rx, %" PRIu64 " rx by software\n",
                counters.ptpFramesSent, counters.eventFramesSent, counters.framesSwallowed,
                counters.txTimestamps, counters.rxTimestamps, counters.rxFallbacks);
    std::printf("  clock read %" PRIu64 " times, set or adjusted %" PRIu64 " times\n",
                counters.clockReadings, counters.clockAdjustments);
    for (const auto& [name, fault] : virtual_i210::faultsByName()) {
        const std::uint32_t remaining = virtual_i210::remainingFaults(card.ifName, fault);
        if (remaining == virtual_i210::kUntilCleared) {
            std::printf("  fault %s until cleared\n", name.c_str());
        } else if (remaining != 0) {
            std::printf("  fault %s for %u frames\n", name.c_str(), remaining);
        }
    }
}

void show() {
    for (const auto& card : virtual_i210::cards()) {
        showCard(card);
    }
}

/** What the command line of one call says. */
struct Order {
    std::string ifName;
    std::string fault;
    FaultOrder details;
    bool untilCleared = false;
    std::string refused;
    int errorNumber = 0;
    std::int64_t stepNs = 0;
    std::uint64_t rawNs = 0;
    double ratePpb = 0.0;
    std::string onOff;
};

CLI::App* addCommand(CLI::App& app, Order& order, const char* name, const char* description,
                     const std::function<void()>& action) {
    CLI::App* command = app.add_subcommand(name, description);
    command->add_option("interface", order.ifName, "the card's interface")->required();
    command->callback(action);
    return command;
}

void addFault(CLI::App& app, Order& order) {
    CLI::App* fault = addCommand(
        app, order, "fault", "let the next frames that a card sends or receives fail", [&order] {
            order.details.fault = virtual_i210::faultsByName().at(order.fault);
            order.details.count =
                order.untilCleared ? virtual_i210::kUntilCleared : order.details.count;
            virtual_i210::orderFault(order.ifName, order.details);
        });
    std::vector<std::string> names;
    names.reserve(virtual_i210::faultsByName().size());
    for (const auto& entry : virtual_i210::faultsByName()) {
        names.push_back(entry.first);
    }
    fault->add_option("fault", order.fault, "what goes wrong")
        ->required()
        ->check(CLI::IsMember(names));
    fault->add_option("--count", order.details.count, "for this many frames")
        ->capture_default_str();
    fault->add_flag("--until-cleared", order.untilCleared, "for all frames until 'clear'");
    fault->add_option("--type", order.details.messageType, "only this PTP messageType")
        ->check(CLI::Range(0, 15));
    fault->add_option("--late-ns", order.details.lateNs, "stamp-late: by how much");
    fault->add_option("--byte", order.details.byte, "corrupt: which byte of the PTP message");
    fault->add_option("--bit", order.details.bit, "corrupt: which bit of it, 0 is the least")
        ->check(CLI::Range(0, 7));
}

void addStates(CLI::App& app, Order& order) {
    CLI::App* link = addCommand(app, order, "link", "pull the cable or plug it in", [&order] {
        virtual_i210::setLink(order.ifName, order.onOff == "up");
    });
    link->add_option("state", order.onOff)->required()->check(CLI::IsMember({"up", "down"}));
    CLI::App* phc = addCommand(app, order, "phc", "hide the clock or show it", [&order] {
        virtual_i210::hidePhc(order.ifName, order.onOff == "hidden");
    });
    phc->add_option("state", order.onOff)->required()->check(CLI::IsMember({"hidden", "shown"}));
    CLI::App* refuse =
        addCommand(app, order, "refuse", "let a request of the driver fail", [&order] {
            if (order.refused == "hwtstamp") {
                virtual_i210::refuseHwtstamp(order.ifName, order.errorNumber);
            } else {
                virtual_i210::refuseEthtool(order.ifName, order.errorNumber);
            }
        });
    refuse->add_option("request", order.refused)
        ->required()
        ->check(CLI::IsMember({"hwtstamp", "ethtool"}));
    refuse->add_option("errno", order.errorNumber, "0 allows it again")
        ->required()
        ->check(CLI::Range(0, 4095));
    addCommand(app, order, "clear", "end all faults of a card",
               [&order] { virtual_i210::clearFaults(order.ifName); });
}

void addClock(CLI::App& app, Order& order) {
    CLI::App* time = addCommand(app, order, "time", "exact clock time at an instant", [&order] {
        const auto phcNs = virtual_i210::truePhcNs(order.ifName.c_str(), order.rawNs);
        if (!phcNs) {
            throw std::runtime_error("'" + order.ifName +
                                     "' is not a card of VIRTUAL_I210; name one of its interfaces");
        }
        std::printf("%" PRIu64 "\n", *phcNs);
    });
    time->add_option("raw-ns", order.rawNs, "the instant, in ns of CLOCK_MONOTONIC_RAW")
        ->required();
    CLI::App* step = addCommand(app, order, "step", "step a clock",
                                [&order] { virtual_i210::stepPhc(order.ifName, order.stepNs); });
    step->add_option("ns", order.stepNs)->required();
    CLI::App* rate = addCommand(app, order, "rate", "change a clock's own rate error", [&order] {
        virtual_i210::setRatePpb(order.ifName, order.ratePpb);
    });
    rate->add_option("ppb", order.ratePpb)->required();
}

int runCommand(int argc, char** argv) {
    CLI::App app("Shows the virtual cards of VIRTUAL_I210 and gives orders to them");
    Order order;
    app.require_subcommand(1);
    app.add_subcommand("show", "clocks, settings, counters and faults")->callback(show);
    addFault(app, order);
    addStates(app, order);
    addClock(app, order);
    try {
        if (!virtual_i210::attachFromEnvironment() && argc > 1 && argv[1][0] != '-') {
            throw std::runtime_error("VIRTUAL_I210 is not set; describe the cards in it first");
        }
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return runCommand(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
