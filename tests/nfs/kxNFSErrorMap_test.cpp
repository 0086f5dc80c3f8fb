#include "nfs/kxNFSErrorMap.h"

#include <gtest/gtest.h>

#include "kxLogCapture.h"

using namespace kxNFSUtils;

namespace {

template <typename T>
void ExpectTable(const ErrorMap<T>& map, long def,
                 std::initializer_list<std::pair<unsigned, uint32_t>> entries,
                 std::initializer_list<unsigned> defaulted) {
    EXPECT_EQ(entries.size(), map.Size());
    for (auto [status, code] : entries)
        EXPECT_EQ(kxStatus(code), map.TranslateError(static_cast<T>(status))) << status;
    for (unsigned status : defaulted)
        EXPECT_EQ(def, map.TranslateError(static_cast<T>(status))) << status;
    EXPECT_EQ(entries.size(), map.Size());  // lookups never insert
}

TEST(ErrorMap, RPCTableKeepsItsGaps) {
    ExpectTable(g_RPCErrorMap, kxStatus(0xE0030300),
                {{1, 0xE0030302}, {2, 0xE0030303}, {3, 0xE0030304}, {5, 0xE0030306},
                 {6, 0xE0030307}, {7, 0xE0030301}, {8, 0xE0030308}, {9, 0xE0030307},
                 {10, 0xE0030309}, {11, 0xE003030D}, {12, 0xE003030D}, {13, 0xE003030A},
                 {14, 0xE003030C}, {15, 0xE0030308}, {17, 0xE003030B}},
                {0, 4 /* RPC_CANTRECV */, 16 /* RPC_FAILED */, 18, 20});
}

TEST(ErrorMap, NFSAndMountTablesShareCodes) {
    ExpectTable(g_NFSErrorMap, kxStatus(0xE0030204),
                {{1, 0xE0030205}, {2, 0xE0030207}, {13, 0xE0030206}, {17, 0xE0030210},
                 {20, 0xE003020A}, {21, 0xE003020A}, {30, 0xE003020E}, {63, 0xE0030208},
                 {66, 0xE0030209}, {70, 0xE003020B}, {10001, 0xE003020F}, {10006, 0xE003020D},
                 {10007, 0xE003020C}},
                {5, 28, 69, 10004, 10008, 12345});
    ExpectTable(g_Mount3ErrorMap, kxStatus(0xE0030204),
                {{1, 0xE0030205}, {2, 0xE0030207}, {13, 0xE0030206}, {20, 0xE003020A},
                 {63, 0xE0030208}, {10006, 0xE003020D}},
                {5, 22, 10004});
}

TEST(ErrorMap, LockManagerAndSystemTables) {
    ExpectTable(g_NLMErrorMap, kxStatus(0xE0030400),
                {{1, 0xE0030401}, {2, 0xE0030402}, {3, 0xE0030403}, {4, 0xE0030404}},
                {5, 6, 7});
    EXPECT_EQ(0u, g_DWORDErrorMap.Size());
    for (unsigned long e : {0ul, 2ul, 111ul, 0xFFFFFFFFul}) EXPECT_EQ(0, g_DWORDErrorMap.TranslateError(e));
}

TEST(TranslateError, TransportStatusWinsOverProtocolStatus) {
    kxtest::LogCapture log;
    EXPECT_EQ(KX_E_RPC_TIMED_OUT, TranslateError(g_NFSErrorMap, RPC_TIMEDOUT, NFS3ERR_NOENT,
                                                 "nfsproc3_lookup_3 (status %d, err 0x%8.8X)", ""));
    EXPECT_EQ(KX_E_RPC_FAILED, TranslateError(g_NLMErrorMap, RPC_CANTRECV, nlm_denied,
                                              "nlm_lock_3(status %d, err 0x%8.8X)", ""));
    EXPECT_EQ(KX_E_NFS_NOENT, TranslateError(g_NFSErrorMap, RPC_SUCCESS, NFS3ERR_NOENT,
                                             "nfsproc3_lookup_3 (status %d, err 0x%8.8X)", ""));
    EXPECT_EQ(KX_E_NFS_FAILED, TranslateError(g_Mount3ErrorMap, RPC_SUCCESS, MNT3ERR_INVAL,
                                              "mountproc3_mnt_3 (status %d, err 0x%8.8X)", ""));
    EXPECT_EQ(KX_E_NLM_FAILED, TranslateError(g_NLMErrorMap, RPC_SUCCESS, nlm_deadlck,
                                              "nlm_lock_3(status %d, err 0x%8.8X)", ""));
    ASSERT_EQ(5u, log.Records().size());
    EXPECT_EQ("nfsproc3_lookup_3 (status 2, err 0x00000005)", log.Records()[0].text);
    EXPECT_EQ("nlm_lock_3(status 1, err 0x00000004)", log.Records()[1].text);
    for (const auto& line : log.Records()) EXPECT_EQ(kxLogSevWarning, line.sev);
    EXPECT_EQ(KX_E_RPC_TIMED_OUT, log.Records()[0].code);
}

TEST(TranslateError, BothSuccessfulStillFailsAndLogs) {
    kxtest::LogCapture log;
    EXPECT_EQ(KX_E_NFS_NO_STATUS, TranslateError(g_NFSErrorMap, RPC_SUCCESS, NFS3_OK,
                                                 "nfsproc3_read_3 (status %d, err 0x%8.8X)", ""));
    // The system-error variant: a successful transport and any error number give 0.
    EXPECT_EQ(0, TranslateError(g_DWORDErrorMap, RPC_SUCCESS, 111ul,
                                "CreateNFSBrowse failed (system err 0x%8.8x, RPC status %d)", "h"));
    ASSERT_EQ(2u, log.Records().size());
    EXPECT_EQ(KX_E_NFS_NO_STATUS, log.Records()[0].code);
    EXPECT_EQ("CreateNFSBrowse failed (system err 0x0000006f, RPC status 0) h", log.Records()[1].text);
}

TEST(TranslateError, DetailFollowsAfterOneBlankAndKeepsPercent) {
    kxtest::LogCapture log;
    const std::string format = "nfsproc3_lookup_3 (status %d, err 0x%8.8X)";
    TranslateError(g_NFSErrorMap, RPC_SUCCESS, NFS3ERR_STALE, format, "srv:/export/a");
    TranslateError(g_NFSErrorMap, RPC_SUCCESS, NFS3ERR_STALE, format, "srv:/odd/100%s%d%n");
    ASSERT_EQ(2u, log.Records().size());
    EXPECT_EQ("nfsproc3_lookup_3 (status 70, err 0x00000000) srv:/export/a", log.Records()[0].text);
    EXPECT_EQ("nfsproc3_lookup_3 (status 70, err 0x00000000) srv:/odd/100%s%d%n",
              log.Records()[1].text);
}

}  // namespace
