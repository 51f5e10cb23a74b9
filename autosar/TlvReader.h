#pragma once

#include <cstddef>

#include "wire/ptpwire.h"

/** Reads a received TLV from front to back. Reading past the end reports (above trace level 0) and
 *  throws the text "No more data" as const char*. */
class TlvReader {
public:
    TlvReader(const unsigned char* data, std::size_t size) : at_(data), end_(data + size) {}

    template <int Bytes>
    unsigned int get() {
        if (end_ - at_ < Bytes) {
            fail();
        }
        const auto value = static_cast<unsigned int>(wire::loadBigEndian<Bytes>(at_));
        at_ += Bytes;
        return value;
    }

    unsigned char getByte() { return static_cast<unsigned char>(get<1>()); }

    /** Byte by byte, so that skipping past the end fails like reading past it. */
    void skip(unsigned int bytes) {
        for (unsigned int i = 0; i < bytes; ++i) {
            getByte();
        }
    }

    /** The one way out for data that cannot be used. */
    [[noreturn]] static void fail();

private:
    const unsigned char* at_;
    const unsigned char* end_;
};
