#include "largevolume/SubvolumeFiles.h"

#include <cstdio>
#include <filesystem>

#include "core/DeconKeys.h"
#include "largevolume/cBlending.h"
#include "largevolume/cImageStatistics.h"
#include "platform/MemoryFiles.h"

namespace Ovidane {

namespace {

cCountedPtr<cBlending> BlendingOf(const std::string& outputFile, const cCountedPtr<cDeconLog>& log,
                                  const cSubvolumeLogList& logs,
                                  const cCountedPtr<cImageStatistics>& statistics) {
    cCountedPtr<cBlending> blending = new cBlending();
    cCountedPtr<cDeconLog> blendLog = new cDeconLog(*log);
    blendLog->GetParameters().SetString(DEC_SPARAMS_ORIGINAL_FILE, outputFile);
    blending->SetStatistics(statistics);
    blending->SetSubvolumeLogs(logs);
    blending->SetLog(blendLog);
    return blending;
}

} // namespace

uint16_t BlendSubvolumesInto(const std::string& outputFile, const cCountedPtr<cDeconLog>& log,
                             const cSubvolumeLogList& logs,
                             const cCountedPtr<cImageStatistics>& statistics,
                             const cFloatImagePtr& restored, bool interiorFiles) {
    cCountedPtr<cBlending> blending = BlendingOf(outputFile, log, logs, statistics);
    blending->SetRestoredInMemory(restored);
    blending->SetResultFilesHoldInteriors(interiorFiles);
    return blending->Blend();
}

cCountedPtr<cBlending> StartStreamedBlending(const std::string& outputFile,
                                            const cCountedPtr<cDeconLog>& log,
                                            const cSubvolumeLogList& logs,
                                            const cCountedPtr<cImageStatistics>& statistics,
                                            int64_t room) {
    // The restorations read the stack, and the first one the PSF file, while the output is
    // written: an output that is one of them waits for the blending after the restorations.
    const cDeconParameter& p = log->GetParameters();
    for (const std::string& input :
         {p.GetString(DEC_SPARAMS_ORIGINAL_FILE), p.GetString(DEC_SPARAMS_INPUT_PSF_FILE)}) {
        std::error_code unknown;
        if (!input.empty() && std::filesystem::equivalent(outputFile, input, unknown))
            return cCountedPtr<cBlending>();
    }
    cCountedPtr<cBlending> blending = BlendingOf(outputFile, log, logs, statistics);
    return blending->StartStreamed(room) ? blending : cCountedPtr<cBlending>();
}

void DeleteSubvolumeFiles(const cSubvolumeLogList& logs) {
    if (!logs)
        return;
    for (const cCountedPtr<cDeconLog>& log : *logs) {
        const cDeconParameter& p = log->GetParameters();
        Platform::RemoveFile(p.GetString(DEC_SPARAMS_ORIGINAL_FILE));
        const std::string result = p.GetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE);
        if (!result.empty()) {
            Platform::RemoveFile(result);
            Platform::RemoveFile(result + "_psf");
        }
    }
}

} // namespace Ovidane
