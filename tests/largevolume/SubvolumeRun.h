#pragma once
// A run over a small stack as the run stages drive it: a run log, the cut, a stand-in for
// the per-subvolume restoration, and the blending's log.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "core/cDeconLog.h"
#include "largevolume/SubvolumeTestFiles.h"
#include "largevolume/cImageStatistics.h"
#include "largevolume/cSubvoluming.h"
#include "support/TempDir.h"

namespace OvidaneTest {

struct CutSettings {
    Ovidane::cImageDimensions size{200, 200, 4};
    int32_t guardXY = 4;
    int32_t guardZ = 2;
    int32_t overlap = 8;
    bool confocal = false;
    // Small enough to force a 3 x 3 cut of 200 x 200 with the bands above.
    int64_t memory = 100000;
};

// What the cut reads from a run's log: the stack and where its pieces go, their guard bands,
// overlap and memory budget, and one restored pixel per pixel read.
inline void SetCutParameters(Ovidane::cDeconParameter& p, const CutSettings& settings,
                             const std::string& stack, const std::string& temp) {
    using namespace Ovidane;
    p.SetString(DEC_SPARAMS_ORIGINAL_FILE, stack);
    p.SetString(DEC_SPARAMS_TEMP_DIRECTORY, temp);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_WIDTH, int32_t(settings.size.x));
    p.SetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT, int32_t(settings.size.y));
    p.SetInt(DEC_IPARAMS_SUBVOLUME_DEPTH, int32_t(settings.size.z));
    p.SetInt(DEC_IPARAMS_SUBVOLUME_XYGUARDBAND, settings.guardXY);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_ZGUARDBAND, settings.guardZ);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_OVERLAP, settings.overlap);
    p.SetBool(DEC_BPARAMS_SUBVOLUME_XYMONTAGE, true);
    p.SetBool(DEC_BPARAMS_IS_CONFOCAL, settings.confocal);
    p.SetBool(DEC_BPARAMS_IS_2D, settings.size.z == 1);
    p.SetFlag(DEC_FPARAMS_SUBVOLUME_METHOD, DEC_FLAG_SVM_DYNAMIC);
    p.SetInt64(DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE, settings.memory);
    p.SetFlag(DEC_FPARAMS_INITIAL_IMAGE_SOURCE, DEC_FLAG_IIS_VOLUME);
    p.SetInt(DEC_IPARAMS_BINFACTOR, 1);
    p.SetInt(DEC_IPARAMS_SUBPIXEL_XY_FACTOR, 1);
    p.SetInt(DEC_IPARAMS_SUBPIXEL_Z_FACTOR, 1);
}

class SubvolumeRun {
public:
    explicit SubvolumeRun(const CutSettings& settings = {})
        : temp("ovd-subvol-temp"), files("ovd-subvol-files"), stack(PatternStack(settings.size)),
          log(new Ovidane::cDeconLog) {
        WriteRaw(files.File("stack"), stack.pixels);
        SetCutParameters(Parameters(), settings, files.File("stack"), temp.Path().string());
        Parameters().SetFlag(Ovidane::DEC_FPARAMS_MODALITY, Ovidane::DEC_FLAG_MOD_WF_FLUORESCENCE);
    }

    Ovidane::cDeconParameter& Parameters() { return log->GetParameters(); }

    // The cut; its result code.
    int Cut(ovdStatusCallback callback = nullptr, void* userData = nullptr) {
        using namespace Ovidane;
        const cImageDimensions& s = stack.size;
        statistics = new cImageStatistics(s.x, s.y, s.z);
        subvoluming = new cSubvoluming;
        subvoluming->SetStatistics(statistics);
        subvoluming->SetLog(log);
        if (callback)
            subvoluming->SetStatusCallback(callback, userData);
        const int result = subvoluming->Prepare();
        logs = subvoluming->GetSubvolumeLogs();
        return result;
    }

    // What a restoration that changes nothing leaves behind: its result file, with `offset`
    // added to every pixel, and its input deleted.
    void RestoreUnchanged(float offset = 0.0f) {
        for (const auto& subvolume : *logs) {
            const Ovidane::cDeconParameter& p = subvolume->GetParameters();
            std::vector<float> pixels = ReadRaw(p.GetString(Ovidane::DEC_SPARAMS_ORIGINAL_FILE));
            for (float& v : pixels)
                v += offset;
            WriteRaw(p.GetString(Ovidane::DEC_SPARAMS_OUTPUT_IMAGE_FILE), pixels);
            std::filesystem::remove(p.GetString(Ovidane::DEC_SPARAMS_ORIGINAL_FILE));
        }
    }

    // The blending's log: the run's, with the output file to write.
    Ovidane::cCountedPtr<Ovidane::cDeconLog> BlendingLog() {
        Ovidane::cCountedPtr<Ovidane::cDeconLog> copy(new Ovidane::cDeconLog(*log));
        copy->GetParameters().SetString(Ovidane::DEC_SPARAMS_ORIGINAL_FILE, Output());
        return copy;
    }
    std::string Output() const { return files.File("result"); }

    TempDir temp;
    TempDir files;
    Stack stack;
    Ovidane::cCountedPtr<Ovidane::cDeconLog> log;
    Ovidane::cCountedPtr<Ovidane::cImageStatistics> statistics;
    Ovidane::cCountedPtr<Ovidane::cSubvoluming> subvoluming;
    Ovidane::cSubvolumeLogList logs;
};

} // namespace OvidaneTest
