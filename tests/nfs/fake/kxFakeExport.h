// What the export modes (kxFakeExportModes.cpp) serve, for the tests that check it, and the
// answer to FSSTAT, FSINFO and PATHCONF every NFS mode builds from its figures.
//
//   mountroot   MOUNT version 3: EXPORT lists "/", "/export" and "/refused", in that order; MNT
//               gives the root handle "MNT" followed by the export path, but refuses "/refused"
//               with MNT3ERR_ACCES; UMNT and NULL answer.
//   nfsfigures  NFS version 3: FSSTAT, FSINFO and PATHCONF answer with the figures below for
//               the root handle they are asked about; everything else as mode "nfs".
#pragma once

#include <cstdint>
#include <vector>

#include "kxFakePeer.h"

namespace kxfake {

// One export root's file-system figures. Read and write sides differ in every figure, and the
// smaller side differs between the two roots, so taking a fixed side, the larger one or the
// other side's preferred size shows.
struct FakeFsFigures {
    uint32_t rtmax, rtpref, rtmult;
    uint32_t wtmax, wtpref, wtmult;
    uint32_t properties;  // FSF3_* bits
    uint32_t deltaSeconds, deltaNanoseconds;
    uint32_t nameMax;
    bool caseInsensitive, casePreserving, chownRestricted;
    uint64_t totalBytes, freeBytes, availableBytes;
};

// "/": the read side is the smaller; every property but "can set time" (0x10).
constexpr FakeFsFigures kFakeRootFigures = {
    128u << 10, 48u << 10, 1024, 2u << 20, 96u << 10, 8192, 0x0F, 2, 500, 77, false, true, false,
    3ull << 40, 5ull << 30, 4ull << 30};
// "/export": the write side is the smaller; "can set time" alone.
constexpr FakeFsFigures kFakeExportFigures = {
    1u << 20, 64u << 10, 4096, 256u << 10, 32u << 10, 512, 0x10, 0, 1000, 200, true, false, true,
    7ull << 30, 6ull << 30, 1ull << 30};

// The reply to an FSSTAT, FSINFO or PATHCONF call (by its procedure) giving figures f.
bool AnswerFigures(const Call& call, const FakeFsFigures& f, std::vector<char>& out);

}  // namespace kxfake
