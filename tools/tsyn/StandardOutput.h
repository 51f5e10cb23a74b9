#pragma once

namespace tsyn {

/** Flushes standard output. Returns the status that was to be returned, or 2 with one line on
 *  standard error when not all of the output could be written. */
int outputStatus(int status);

}  // namespace tsyn
