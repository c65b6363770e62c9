#pragma once
#include <cstdint>
#include <string>

#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "image/cOvdImage.h"
#include "largevolume/SubvolumeLogList.h"

namespace Ovidane {

class cBlending;
class cImageStatistics;

// Joins the restored subvolumes of `logs` into `outputFile`. The blending writes to the file
// its log names as original, so it works on a copy of `log` that names the output; the
// caller's log keeps naming the input. `restored`: the restoration of a lone subvolume held
// in memory instead of its result file (cBlending::SetRestoredInMemory). `interiorFiles`:
// the result files hold the subvolumes' interiors alone
// (cBlending::SetResultFilesHoldInteriors). Answers the blending's code.
uint16_t BlendSubvolumesInto(const std::string& outputFile, const cCountedPtr<cDeconLog>& log,
                             const cSubvolumeLogList& logs,
                             const cCountedPtr<cImageStatistics>& statistics,
                             const cFloatImagePtr& restored = cFloatImagePtr(),
                             bool interiorFiles = false);

// A blending of `logs` into `outputFile` that takes the restorations as they come
// (cBlending::StartStreamed), with `room` bytes beside one restoration; null when the cut
// doesn't allow it, the band doesn't fit or the output is the stack or the PSF file
// (which the restorations read), and the restorations go to their result files.
cCountedPtr<cBlending> StartStreamedBlending(const std::string& outputFile,
                                            const cCountedPtr<cDeconLog>& log,
                                            const cSubvolumeLogList& logs,
                                            const cCountedPtr<cImageStatistics>& statistics,
                                            int64_t room);

// Deletes every file a cut and its restorations made: each subvolume's input, its result
// and the PSF a restoration may have saved beside it. Missing files are passed over.
void DeleteSubvolumeFiles(const cSubvolumeLogList& logs);

} // namespace Ovidane
