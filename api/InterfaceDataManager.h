#pragma once

#include <cstddef>
#include <type_traits>

#include "base/Exports.h"
#include "include/ZebEthTimeSynSupportInterface.h"

#pragma pack(push, 4)
/** The configuration followed by 60 bytes of run-time status, 416 bytes. Written by the API and
 *  the daemon's threads without a lock; every field is read and written by value. */
struct InstanceBlock {
    TSynInstanceConfig cfg;
    unsigned char runtime356[16];
    unsigned int lastPathDelay;  ///< ns, as last handed to the host
    unsigned char runtime376[4];
    unsigned char timeBaseStatus;
    unsigned char runtime381[7];
    unsigned char userDataLength;
    unsigned char userBytes[3];
    unsigned int subTlvCount;
    unsigned int subTlvCrcKinds[4];
    unsigned char subTlvValid[4];
};
#pragma pack(pop)

static_assert(sizeof(InstanceBlock) == 416, "size of the instance block");
static_assert(std::is_trivially_copyable<InstanceBlock>::value, "Create copies over it");
#define ZEB_BLOCK_OFFSET(member, offset) \
    static_assert(offsetof(InstanceBlock, member) == (offset), #member)
ZEB_BLOCK_OFFSET(cfg.argumentCount, 4);
ZEB_BLOCK_OFFSET(cfg.ethStackIdent, 8);
ZEB_BLOCK_OFFSET(cfg.interfaceName, 200);
ZEB_BLOCK_OFFSET(cfg.Domain, 264);
ZEB_BLOCK_OFFSET(cfg.role, 265);
ZEB_BLOCK_OFFSET(cfg.EnableAutosarExtensions, 266);
ZEB_BLOCK_OFFSET(cfg.VlanID, 268);
ZEB_BLOCK_OFFSET(cfg.VlanPrio, 272);
ZEB_BLOCK_OFFSET(cfg.PropagationDelay, 276);
ZEB_BLOCK_OFFSET(cfg.syncInterval, 280);
ZEB_BLOCK_OFFSET(cfg.DataIDList, 296);
ZEB_BLOCK_OFFSET(cfg.TxMode, 312);
ZEB_BLOCK_OFFSET(cfg.TxCrcMode, 316);
ZEB_BLOCK_OFFSET(cfg.timeSubTlv, 328);
ZEB_BLOCK_OFFSET(cfg.statusSubTlv, 332);
ZEB_BLOCK_OFFSET(cfg.userDataSubTlv, 336);
ZEB_BLOCK_OFFSET(cfg.CrcTimeFlags, 340);
ZEB_BLOCK_OFFSET(lastPathDelay, 372);
ZEB_BLOCK_OFFSET(timeBaseStatus, 380);
ZEB_BLOCK_OFFSET(userDataLength, 388);
ZEB_BLOCK_OFFSET(userBytes, 389);
ZEB_BLOCK_OFFSET(subTlvCount, 392);
ZEB_BLOCK_OFFSET(subTlvCrcKinds, 396);
ZEB_BLOCK_OFFSET(subTlvValid, 412);
#undef ZEB_BLOCK_OFFSET

/** Owner of the one instance of the process; made on first use and never destroyed. */
class InterfaceDataManager {
public:
    /** The instance, or null when memory is exhausted. Above trace level 2 the first call prints
     *  its trace line and aborts. The very first call must come from one thread. */
    ZEB_ENTRY static InterfaceDataManager* getInstance();

    /** As getInstance, then copies the host's record over the start of the block: as many bytes as
     *  its own size field says, at most the whole block. */
    ZEB_ENTRY static InterfaceDataManager* getInstance(const TSynInstanceConfig* cfg);

    ZEB_EXPORT static InterfaceDataManager* m_pInstance;

    InstanceBlock block;

private:
    InterfaceDataManager();
};

static_assert(sizeof(InterfaceDataManager) == sizeof(InstanceBlock), "the block is its contents");
