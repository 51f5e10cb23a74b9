#pragma once

#include "api/InterfaceDataManager.h"
#include "autosar/TLVObject.h"

/* What a master appends to a Follow_Up. The building blocks write at a place in a zeroed buffer and
 * return the place behind what they wrote. */

/** Bytes that follow the sub-TLVs within an AUTOSAR TLV of so many value bytes: none in deployed
 *  nodes, unless a profile puts another step in place before the first thread starts. */
extern unsigned int (*autosarPadding)(unsigned int valueSize);
unsigned int padNothing(unsigned int valueSize);

/** Mask of the sub-TLVs that a configuration asks for. */
unsigned int subTlvMask(const TSynInstanceConfig& cfg);

/** The Follow_Up information TLV of a grandmaster that never changes frequency or phase. */
unsigned char* putFollowUpTlv(unsigned char* at);

/** Head of the AUTOSAR TLV for the sub-TLVs of a mask. */
unsigned char* putAutosarHead(unsigned char* at, unsigned int mask);

/** One sub-TLV for a Follow_Up whose header is complete: the CRCs may cover all of it. */
unsigned char* putSubTlv(unsigned char* at, const SubTlvKind& kind, const InstanceBlock& block,
                         const unsigned char* followUp);

/** Appends the AUTOSAR TLV with the sub-TLVs of the mask to a Follow_Up in a message buffer and
 *  sets its messageLength; a mask of 0 changes nothing. */
void attachSubTlvs(unsigned char* followUp, const InstanceBlock& block, unsigned int mask);
