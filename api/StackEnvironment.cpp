#include "api/StackEnvironment.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr const char* kVariable = "SOCK";

/** What one run found. Runs are chained and never freed: a pump may be reading an earlier one. */
struct SavedValue {
    char* text;
    const SavedValue* earlier;
};

const SavedValue* latest = nullptr;

/** A copy, because setenv may move what getenv returned; null when unset. */
char* copyOfValue() {
    const char* const value = std::getenv(kVariable);
    return value != nullptr ? strdup(value) : nullptr;
}

void putBack(const char* value) {
    if (value != nullptr) {
        setenv(kVariable, value, 1);
    }
}

}  // namespace

StackScope::StackScope(const char* stack) : saved_(copyOfValue()) {
    setenv(kVariable, stack, 1);
}

StackScope::~StackScope() {
    putBack(saved_);
    std::free(saved_);
}

void stack_environment::enterRun(const char* stack) {
    const SavedValue* const earlier = __atomic_load_n(&latest, __ATOMIC_RELAXED);
    __atomic_store_n(&latest, new (std::nothrow) SavedValue{copyOfValue(), earlier},
                     __ATOMIC_RELEASE);
    setenv(kVariable, stack, 1);
}

void stack_environment::restore() {
    const SavedValue* const saved = __atomic_load_n(&latest, __ATOMIC_ACQUIRE);
    if (saved != nullptr) {
        putBack(saved->text);
    }
}
