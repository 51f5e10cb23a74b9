#pragma once

#include "base/Exports.h"

/** Role bodies for one interface; return when the role could not start or its pumps have ended. */
ZEB_EXPORT void MasterThread(char* ifName);
ZEB_EXPORT void SlaveThread(char* ifName);
