#pragma once

/* The library is built with hidden visibility: a name is the library's own unless it says here that
 * hosts may see it. No name is bound inside (-Bsymbolic stays off), so hosts can replace hooks. */

/** A variable or class that hosts see. */
#define ZEB_EXPORT __attribute__((visibility("default")))

/** A function or class member that hosts call or run as a thread. Hosts built for i386 may keep
 * their stacks aligned to 4 bytes only, while the C library wants 16: such a function aligns the
 * stack for all that it calls. */
#ifdef __i386__
#define ZEB_ENTRY ZEB_EXPORT __attribute__((force_align_arg_pointer))
#else
#define ZEB_ENTRY ZEB_EXPORT
#endif

/** A member of an exported class that hosts do not see. */
#define ZEB_INTERNAL __attribute__((visibility("hidden")))

/** Exports a function under its plain name as well, so that C hosts and dlsym find it. The compiler
 *  wants the C++ name spelled out; it is the same on i386 and x86-64. */
#define ZEB_PLAIN_NAME(result, function, parameters, mangled)                   \
    extern "C" ZEB_EXPORT result plain_##function parameters __asm__(#function) \
        __attribute__((alias(mangled)))

/** Gives an object the symbol of the variable that headers declare with another type: storage that
 *  is not destroyed at exit stands in for the plain object. */
#define ZEB_STORAGE_OF(symbol) __asm__(symbol) ZEB_EXPORT
