#pragma once

#include "base/ptptime.h"
#include "include/gPtpTimeQuality.h"

/* What the daemon has seen that readers of its time should know. Any thread may tell; the step that
 * publishes time takes it along. */
namespace quality {

void noteMaster(const unsigned char* identity, unsigned short port);
void noteNoMaster();
void setFlag(TSynTimeFlags flag, bool on);
void countIgnoredFrame();
void countUnstampedFrame();
void countStrayStamp();
void countUnusedExchange();
void countRefusedSample();
void countStep();

/** Fills in all that was told; leaves sequence, state, bound and voidAfterNs alone. */
void fill(gPtpTimeQuality& quality);

}  // namespace quality
