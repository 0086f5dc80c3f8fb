#include "nfs/kxNFSErrorMap.h"

#include <gtest/gtest.h>

#include "kxLogCapture.h"

using namespace kxNFSUtils;

namespace {

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

// Every call is a failure, even one whose two statuses say success; the detail follows the
// text after one blank, taken as it is (no format directives in it are expanded).
TEST(TranslateError, BothSuccessfulStillFailsAndDetailIsKept) {
    kxtest::LogCapture log;
    EXPECT_EQ(KX_E_NFS_NO_STATUS, TranslateError(g_NFSErrorMap, RPC_SUCCESS, NFS3_OK,
                                                 "nfsproc3_read_3 (status %d, err 0x%8.8X)", ""));
    // The system-error variant: a successful transport and any error number give 0.
    EXPECT_EQ(0, TranslateError(g_DWORDErrorMap, RPC_SUCCESS, 111ul,
                                "CreateNFSBrowse failed (system err 0x%8.8x, RPC status %d)", "h"));
    TranslateError(g_NFSErrorMap, RPC_SUCCESS, NFS3ERR_STALE,
                   "nfsproc3_lookup_3 (status %d, err 0x%8.8X)", "srv:/odd/100%s%d%n");
    ASSERT_EQ(3u, log.Records().size());
    EXPECT_EQ(KX_E_NFS_NO_STATUS, log.Records()[0].code);
    EXPECT_EQ("CreateNFSBrowse failed (system err 0x0000006f, RPC status 0) h",
              log.Records()[1].text);
    EXPECT_EQ("nfsproc3_lookup_3 (status 70, err 0x00000000) srv:/odd/100%s%d%n",
              log.Records()[2].text);
}

}  // namespace
