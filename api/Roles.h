#pragma once

#include "base/Exports.h"

/** Role bodies for one interface; return when the role could not start or its pumps have ended. */
ZEB_ENTRY void MasterThread(char* ifName);
ZEB_ENTRY void SlaveThread(char* ifName);

/** Frees what a cancelled role left to its pumps, once all of them were joined. */
void freeCancelledRole();
