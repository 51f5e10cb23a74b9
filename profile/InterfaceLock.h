#pragma once

/* One daemon an interface: two would answer each request twice and write one record. */
namespace interface_lock {

/** Takes the interface for this process until release or its end. Returns 0, or the process that
 *  has it, -1 when that one cannot be told. A lock that cannot be had for another reason is logged
 *  and taken as free. */
int take(const char* interfaceName);

void release();

}  // namespace interface_lock
