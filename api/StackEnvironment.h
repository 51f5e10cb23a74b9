#pragma once

/* The environment variable SOCK names the Ethernet stack that sockets opened meanwhile belong to.
 * It is the host's: whoever points it at our stack puts the host's value back. One that was unset
 * stays at the stack, since there is nothing to put back. */

/** Points SOCK at a stack for one scope. */
class StackScope {
public:
    explicit StackScope(const char* stack);
    ~StackScope();
    StackScope(const StackScope&) = delete;
    StackScope& operator=(const StackScope&) = delete;

private:
    char* saved_;
};

namespace stack_environment {

/** Points SOCK at the stack of a run of the main thread and keeps the value it had. */
void enterRun(const char* stack);

/** Puts back what the latest enterRun found. Any thread. */
void restore();

}  // namespace stack_environment
