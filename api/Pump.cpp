#include "api/Pump.h"

#include <utility>

void Pump::startInput(NetworkService<sock>& service, const char* nameFormat, const char* ifName) {
    factory_ = std::make_unique<PTPMessageFactory>();
    input_ = {&service, factory_.get()};
    thread_.create({ThreadKind::kInput, InputThreader, &input_, nameFormat}, ifName);
}

void Pump::startOutput(NetworkService<sock>& service, Output output, const char* ifName) {
    message_ = std::move(output.message);
    output_ = {&service, message_.get(), output.condition, output.periodMs};
    thread_.create({output.kind, OutputThreader, &output_, output.nameFormat}, ifName);
}
