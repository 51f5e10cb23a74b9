#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

const char* const kFunctions[] = {
    "ZebEthTSynInterface_Create",
    "ZebEthTSynInterface_Destroy",
    "ZebEthTSynInterface_GetBoundedTime",
    "ZebEthTSynInterface_GetCurrentTime",
    "ZebEthTSynInterface_GetMasterTime",
    "ZebEthTSynInterface_GetProfilePreset",
    "ZebEthTSynInterface_GetProfileSwitch",
    "ZebEthTSynInterface_SetHardTime",
    "ZebEthTSynInterface_SetProfile",
    "ZebEthTSynInterface_SetProfileSwitch",
    "ZebEthTSynInterface_SetSoftTime",
    "ZebEthTSynInterface_SetStatus",
    "ZebEthTSynInterface_SetTime",
    "ZebEthTSynInterface_SetTimeBaseStatus",
    "ZebEthTSynInterface_SetTxMode",
    "ZebEthTSynInterface_SetUserData",
    "ZebEthTSynInterface_Start",
    "ZebEthTSynInterface_Stop",
    "ZebEthTSynInterface_getDaemonStatus",
    "_Z10atomic_addPVjj",
    "_Z10atomic_subPVjj",
    "_Z10macaddressPKcPh",
    "_Z11SlaveThreadPc",
    "_Z12MasterThreadPc",
    "_Z12findPhcIndexPc",
    "_Z13DisplayIODataPKcP10ptp_time_tS0_Phi",
    "_Z13InputThreaderPv",
    "_Z14OutputThreaderPv",
    "_Z14getTxTimestampi",
    "_Z16GetInterfaceNameP14NetworkServiceI4sockE",
    "_Z17DisableUsrSignalsv",
    "_Z20Crc_CalculateCRC8H2FPKhjhb",
    "_Z20getRxTimestampedDataiPhPi",
    "_Z21retrieve_RX_timestampR10UInterfaceP10ptpv2hdr_tP14ptp_ext_time_t",
    "_Z22EnableI210TimestampingPKc",
    "_Z26get_ptp_hardware_clock_phcPc",
    "_Z26set_ptp_hardware_clock_phcPKctjj",
    "_Z28SyncFollowUpAttachAutoSARTLVPciPS_Pi",
    "_Z28SyncFollowUpDetachAutoSARTLVPciS_Pi",
    "_Z32ProcessIncomingAutoSARTLVObjectsP9TLVObjectP10ptpv2hdr_t",
    "_Z33getConfigParameterBlockTLVBitmaskv",
    "_Z34BuildPTPClockIdentityFromMacAdressP14NetworkServiceI4sockE",
    "_Z7getTimeP8timespec",
    "gPtpSystemAtTime",
    "gPtpTimeAtSystem",
};

const char* const kMembers[] = {
    "_ZN10PTPMessage14msgDebugHeaderEv",
    "_ZN10PTPMessage17getMsgNumericTypeEv",
    "_ZN10PTPMessage20retrievePortIdentityEv",
    "_ZN10PTPMessage22getPTPMessageTimestampEv",
    "_ZN10PTPMessageD0Ev",
    "_ZN10PTPMessageD1Ev",
    "_ZN10PTPMsgSync15processIncomingEv",
    "_ZN10PTPMsgSync15processOutgoingEv",
    "_ZN10PTPMsgSync17getMsgNumericTypeEv",
    "_ZN10PTPMsgSyncD0Ev",
    "_ZN10PTPMsgSyncD1Ev",
    "_ZN10i210helper12set_stack_IdEPKc",
    "_ZN10i210helper15e1000_getsockidEPKc",
    "_ZN10i210helper18e1000_ptp_get_timeEPKc",
    "_ZN10i210helper18e1000_ptp_set_timeEPKctjj",
    "_ZN10i210helper21retrieve_RX_timestampER10UInterfaceP10ptpv2hdr_tP14ptp_ext_time_t",
    "_ZN10i210helper21retrieve_TX_timestampER10UInterfaceP10ptpv2hdr_tP10ptp_time_t",
    "_ZN10i210helper22e1000_check_link_stateEPKc",
    "_ZN10i210helper22e1000_ptp_get_ext_timeEPKcPyS2_",
    "_ZN10i210helper26e1000_ptp_set_compensationEPKcx",
    "_ZN10i210helper35GetExtenxdedTimestampingInformationEPKcP10ptpv2hdr_tP10ptp_time_tPyS6_",
    "_ZN10i210helperC1Ev",
    "_ZN10i210helperD0Ev",
    "_ZN10i210helperD1Ev",
    "_ZN14NetworkServiceI4sockE26GetLocalSystemCapabilitiesERxS2_S2_Re",
    "_ZN14NetworkServiceI4sockE5CloseEv",
    "_ZN14NetworkServiceI4sockE6sendtoEPKviiPK8sockaddrj",
    "_ZN14NetworkServiceI4sockE7receiveEPhiP10ptp_time_t",
    "_ZN14NetworkServiceI4sockE8transmitEPKhiP10ptp_time_t",
    "_ZN14NetworkServiceI4sockEC1EPKc",
    "_ZN14NetworkServiceI4sockED0Ev",
    "_ZN14NetworkServiceI4sockED1Ev",
    "_ZN14PTPMsgAnnounce15processIncomingEv",
    "_ZN14PTPMsgAnnounce15processOutgoingEv",
    "_ZN14PTPMsgAnnounce17getMsgNumericTypeEv",
    "_ZN14PTPMsgAnnounceD0Ev",
    "_ZN14PTPMsgAnnounceD1Ev",
    "_ZN14PTPMsgFollowUp15processIncomingEv",
    "_ZN14PTPMsgFollowUp15processOutgoingEP10PTPMessageP10ptp_time_t",
    "_ZN14PTPMsgFollowUp17getMsgNumericTypeEv",
    "_ZN14PTPMsgFollowUpD0Ev",
    "_ZN14PTPMsgFollowUpD1Ev",
    "_ZN17PTPMessageFactory21getPTPMessageInstanceEP10ptpv2hdr_t",
    "_ZN18PTPMsgPathDelayReq15processIncomingEv",
    "_ZN18PTPMsgPathDelayReq15processOutgoingEv",
    "_ZN18PTPMsgPathDelayReq17getMsgNumericTypeEv",
    "_ZN18PTPMsgPathDelayReqD0Ev",
    "_ZN18PTPMsgPathDelayReqD1Ev",
    "_ZN19PTPMsgPathDelayResp15processIncomingEv",
    "_ZN19PTPMsgPathDelayResp15processOutgoingEP10PTPMessageP10ptp_time_t",
    "_ZN19PTPMsgPathDelayResp17getMsgNumericTypeEv",
    "_ZN19PTPMsgPathDelayRespD0Ev",
    "_ZN19PTPMsgPathDelayRespD1Ev",
    "_ZN20InterfaceDataManager11getInstanceEPK18TSynInstanceConfig",
    "_ZN20InterfaceDataManager11getInstanceEv",
    "_ZN27PTPMsgPathDelayRespFollowUp15processIncomingEv",
    "_ZN27PTPMsgPathDelayRespFollowUp15processOutgoingEP10PTPMessageP10ptp_time_t",
    "_ZN27PTPMsgPathDelayRespFollowUp17getMsgNumericTypeEv",
    "_ZN27PTPMsgPathDelayRespFollowUpD0Ev",
    "_ZN27PTPMsgPathDelayRespFollowUpD1Ev",
    "_ZN5OSipc8instanceEPKc",
    "_ZN9TLVObjectC1EiP10ptpv2hdr_th",
    "_ZN9TLVObjectC1Ev",
    "_ZN9TLVObjectD1Ev",
    "_ZNK14NetworkServiceI4sockE4whatEv",
};

const char* const kVariables[] = {
    "DbgTraceLevel",
    "MasterOrSlave",
    "_Z13EthStackIdentB5cxx11",
    "_Z7devnameB5cxx11",
    "_Z8shm_nameB5cxx11",
    "_Z9netifnameB5cxx11",
    "_ZN20InterfaceDataManager11m_pInstanceE",
    "_ZN5OSipc27global_master_offset_bufferE",
    "_ZN5OSipc3mapB5cxx11E",
    "bSuppressPDelay",
    "clockItems",
    "condvar",
    "cv",
    "cv1",
    "cv2",
    "cv_announce",
    "cvout",
    "cvpd",
    "dbgMsgType",
    "i210TimeOffset",
    "mutexInputThreader",
    "mutexOutputThreader",
    "override_portstate",
    "pMutex",
    "runningState",
    "slope_mN",
    "slope_mZ",
    "slope_x",
    "slope_y",
    "th_mutex",
    "threadCount",
};

/** Plain name and C++ name of one function. */
struct Alias {
    const char* plain;
    const char* mangled;
};

const Alias kAliases[] = {
    {"MainEntryPointSharedLibrary", "_Z27MainEntryPointSharedLibraryPv"},
    {"PartialRegressionLine", "_Z21PartialRegressionLineyy"},
    {"RemotePTPSpyProvider", "_Z20RemotePTPSpyProviderPv"},
    {"get_1AS_time", "_Z12get_1AS_timeP18gPtpTimeDataStructx"},
    {"get_1AS_time_invers", "_Z19get_1AS_time_inversP18gPtpTimeDataStructy"},
};

/** The library as a host loads it. */
class ExportedSymbols : public testing::Test {
protected:
    ExportedSymbols() : library_(dlopen(ZEB_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
        EXPECT_NE(nullptr, library_) << dlerror();
    }

    void* symbol(const char* name) const { return dlsym(library_, name); }

    /** The symbol, when it is the library's own and not one of a library that it loads. */
    bool isDefinedHere(const char* name) const {
        Dl_info info{};
        void* const address = symbol(name);
        return address != nullptr && dladdr(address, &info) != 0 &&
               std::string(info.dli_fname) == ZEB_LIBRARY;
    }

    template <typename Value>
    Value valueOf(const char* name) const {
        return *static_cast<const Value*>(symbol(name));
    }

    /** Values of a tag in the dynamic section. */
    std::vector<ElfW(Addr)> dynamicValues(ElfW(Sxword) tag) const {
        const link_map* map = nullptr;
        dlinfo(library_, RTLD_DI_LINKMAP, &map);
        std::vector<ElfW(Addr)> values;
        for (const ElfW(Dyn)* entry = map->l_ld; entry->d_tag != DT_NULL; ++entry) {
            if (entry->d_tag == tag) {
                values.push_back(entry->d_un.d_ptr);
            }
        }
        return values;
    }

    std::vector<std::string> dynamicTexts(ElfW(Sxword) tag) const {
        // The dynamic section holds addresses as numbers. NOLINTNEXTLINE(performance-no-int-to-ptr)
        const auto* const table = reinterpret_cast<const char*>(dynamicValues(DT_STRTAB).at(0));
        std::vector<std::string> texts;
        for (const ElfW(Addr) offset : dynamicValues(tag)) {
            texts.emplace_back(table + offset);
        }
        return texts;
    }

    void* library_;
};

TEST_F(ExportedSymbols, HoldEveryFunction) {
    for (const char* name : kFunctions) {
        EXPECT_TRUE(isDefinedHere(name)) << name;
    }
}

TEST_F(ExportedSymbols, HoldEveryMember) {
    for (const char* name : kMembers) {
        EXPECT_TRUE(isDefinedHere(name)) << name;
    }
}

TEST_F(ExportedSymbols, HoldEveryVariable) {
    for (const char* name : kVariables) {
        EXPECT_TRUE(isDefinedHere(name)) << name;
    }
}

TEST_F(ExportedSymbols, PlainNamesAreTheSameFunctionsAsTheirCppNames) {
    for (const Alias& alias : kAliases) {
        EXPECT_TRUE(isDefinedHere(alias.plain)) << alias.plain;
        EXPECT_EQ(symbol(alias.mangled), symbol(alias.plain)) << alias.plain;
    }
}

TEST_F(ExportedSymbols, VariablesHaveTheirInitialValues) {
    EXPECT_EQ(4, valueOf<int>("DbgTraceLevel"));
    EXPECT_EQ('?', valueOf<char>("MasterOrSlave"));
    EXPECT_EQ(0, valueOf<unsigned char>("runningState"));
    EXPECT_EQ(1, valueOf<long long>("slope_mZ"));
    EXPECT_EQ(1, valueOf<long long>("slope_mN"));
    EXPECT_EQ(nullptr, valueOf<void*>("_ZN20InterfaceDataManager11m_pInstanceE"));
    EXPECT_STREQ("ERROR", static_cast<const char**>(symbol("dbgMsgType"))[8]);
}

/** The names of one library that its dynamic symbol table defines. */
std::vector<std::string> definedNames(const char* library) {
    std::vector<std::string> names;
    FILE* const listing =
        popen(("nm --dynamic --defined-only --format=posix " + std::string(library)).c_str(), "r");
    char name[1024];
    while (std::fscanf(listing, "%1023s%*[^\n]", name) == 1) {
        names.emplace_back(name);
    }
    pclose(listing);
    return names;
}

/** True for what the C++ runtime shares between libraries: tables and names of types, members of
 *  the standard library that the compiler wrote here too, and the marks of AddressSanitizer. */
bool belongsToTheRuntime(const std::string& name) {
    const char* const prefixes[] = {"_ZTV",   "_ZTI", "_ZTS", "_ZSt",       "_ZNSt",
                                    "_ZNKSt", "_ZNS", "_ZZ",  "__odr_asan."};
    return std::any_of(std::begin(prefixes), std::end(prefixes),
                       [&](const char* prefix) { return name.rfind(prefix, 0) == 0; });
}

TEST_F(ExportedSymbols, NothingElseIsSeenOutside) {
    std::set<std::string> wanted(std::begin(kFunctions), std::end(kFunctions));
    wanted.insert(std::begin(kMembers), std::end(kMembers));
    wanted.insert(std::begin(kVariables), std::end(kVariables));
    for (const Alias& alias : kAliases) {
        wanted.insert({alias.plain, alias.mangled});
    }
    const std::vector<std::string> names = definedNames(ZEB_LIBRARY);
    EXPECT_LT(wanted.size() / 2, names.size());
    for (std::string name : names) {
        // The compiler emits each constructor and destructor under a second name.
        for (const auto& [second, first] : {std::pair("C2E", "C1E"), std::pair("D2E", "D1E")}) {
            const std::size_t at = name.find(second);
            if (at != std::string::npos) {
                name.replace(at, 3, first);
            }
        }
        EXPECT_TRUE(wanted.count(name) != 0 || belongsToTheRuntime(name)) << name;
    }
}

TEST_F(ExportedSymbols, LibraryIsNamedAsHostsLoadIt) {
    EXPECT_EQ(std::vector<std::string>{"libZebEthTimeSynDaemon.so"}, dynamicTexts(DT_SONAME));
}

TEST_F(ExportedSymbols, LibraryNeedsNothingButTheLanguageRuntime) {
    for (const std::string& name : dynamicTexts(DT_NEEDED)) {
        const char* const allowed[] = {"libstdc++.so", "libm.so",    "libgcc_s.so", "libc.so",
                                       "ld-linux",     "libasan.so", "libubsan.so"};
        EXPECT_TRUE(std::any_of(std::begin(allowed), std::end(allowed), [&](const char* prefix) {
            return name.rfind(prefix, 0) == 0;
        })) << name;
    }
}

TEST_F(ExportedSymbols, StaysReplaceableByTheHost) {
    for (const ElfW(Addr) flags : dynamicValues(DT_FLAGS)) {
        EXPECT_EQ(0U, flags & DF_SYMBOLIC);
    }
    EXPECT_TRUE(dynamicValues(DT_SYMBOLIC).empty());
}

TEST_F(ExportedSymbols, LibraryStaysLoadedWhenClosed) {
    dlclose(library_);
    void* const still = dlopen(ZEB_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    EXPECT_NE(nullptr, still);
}

}  // namespace
