#pragma once

#include <cstddef>

/* Bounds the table of ports: whoever invents identities fills memory otherwise. Input thread. */
namespace port_table {

/** Makes room for the port that a message is filed under, before it is handled. The port that was
 *  silent longest goes, never our own nor that of the master believed. */
void makeRoom(const unsigned char* message, std::size_t limit);

}  // namespace port_table
