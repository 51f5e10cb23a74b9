#pragma once

namespace tsyn {

/** Flushes standard output. Returns the status that was to be returned, or that of unwritten output
 *  with one line on standard error when not all of it could be written. */
int outputStatus(int status, int unwritten = 1);

}  // namespace tsyn
