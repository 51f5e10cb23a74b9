#pragma once

#include <memory>

#include "api/MessagePumps.h"
#include "api/ThreadHandle.h"

/** A message pump: its thread, the record it runs with and what it alone uses. Destroyed only
 *  after its thread was joined or when none was started. */
class Pump {
public:
    Pump() = default;
    Pump(const Pump&) = delete;
    Pump& operator=(const Pump&) = delete;

    /** Receives through a service. A pump that the system gives no thread stays silent. */
    void startInput(NetworkService<sock>& service, const char* nameFormat, const char* ifName);

    /** What an output pump is to send, how often and as which thread. */
    struct Output {
        ThreadKind kind;
        std::unique_ptr<PTPMessage> message;
        std::condition_variable* condition;
        int periodMs;
        const char* nameFormat;
    };
    void startOutput(NetworkService<sock>& service, Output output, const char* ifName);

    void join() { thread_.join(); }

private:
    InputPumpRecord input_{};
    OutputPumpRecord output_{};
    std::unique_ptr<PTPMessageFactory> factory_;
    std::unique_ptr<PTPMessage> message_;
    ThreadHandle thread_;
};
