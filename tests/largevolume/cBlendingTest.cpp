#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <tuple>
#include <vector>

#include "core/cException.h"
#include "image/RegionSourceForTests.h"
#include "decon/cImageNonNegativityLinearCompressionConstraint.h"
#include "largevolume/SubvolumeRun.h"
#include "largevolume/cBlending.h"
#include "largevolume/cBlendingBand.h"
#include "support/TestImages.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

// Pixels of `file` that differ from the stack plus `offset` by more than rounding; seam
// weights are single-precision ramps that add up to 1 within a few ulp.
int Mismatches(const std::vector<float>& file, const Stack& stack, float offset = 0.0f) {
    if (file.size() != stack.pixels.size())
        return -1;
    int wrong = 0;
    for (std::size_t i = 0; i < file.size(); ++i) {
        const float expected = stack.pixels[i] + offset;
        wrong += std::fabs(file[i] - expected) > 1e-5f * std::fabs(expected);
    }
    return wrong;
}

cCountedPtr<cBlending> BlendingOf(SubvolumeRun& run, const cCountedPtr<cDeconLog>& log) {
    cCountedPtr<cBlending> blending(new cBlending);
    blending->SetStatistics(run.statistics);
    blending->SetSubvolumeLogs(run.logs);
    blending->SetLog(log);
    return blending;
}

uint16_t Blend(SubvolumeRun& run, const cCountedPtr<cDeconLog>& log) {
    return BlendingOf(run, log)->Blend();
}

// The blending that takes each restoration as it comes, handed what RestoreUnchanged would
// have written, in the order of the logs; 99 when it doesn't take the run.
uint16_t BlendAsRestored(SubvolumeRun& run, const cCountedPtr<cDeconLog>& log,
                         float offset = 0.0f) {
    cCountedPtr<cBlending> blending = BlendingOf(run, log);
    if (!blending->StartStreamed(int64_t{1} << 30))
        return 99;
    for (std::size_t i = 0; i < run.logs->size(); ++i) {
        const cDeconParameter& p = (*run.logs)[i]->GetParameters();
        const cImageDimensions padded{uint32_t(p.GetInt(DEC_IPARAMS_SUBVOLUME_WIDTH)),
                                      uint32_t(p.GetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT)),
                                      uint32_t(p.GetInt(DEC_IPARAMS_SUBVOLUME_DEPTH))};
        const std::vector<float> pixels = ReadRaw(p.GetString(DEC_SPARAMS_ORIGINAL_FILE));
        std::filesystem::remove(p.GetString(DEC_SPARAMS_ORIGINAL_FILE));
        blending->AddRestored(i, MakeImage(padded, [&](uint32_t x, uint32_t y, uint32_t z) {
            return pixels[(std::size_t{z} * padded.y + y) * padded.x + x] + offset;
        }));
    }
    return blending->FinishStreamed();
}

// Restorations that change nothing must give the stack back, whatever the seams: raised
// cosines over 8 columns, a shared column of half weights, plain tiles side by side, one
// subvolume alone. Only the output is left; every temporary file is gone.
TEST(cBlendingTest, JoiningUnchangedSubvolumesGivesTheStackBack) {
    struct Case {
        const char* what;
        CutSettings settings;
        size_t subvolumes;
        bool asRestored = false;
    };
    for (const Case& c :
         {Case{"overlap 8", {}, 9}, Case{"overlap 8, as restored", {}, 9, true},
          Case{"overlap 1", {.overlap = 1, .confocal = true}, 9},
          Case{"overlap 1, as restored", {.overlap = 1, .confocal = true}, 9, true},
          Case{"overlap 0", {.overlap = 0, .confocal = true}, 9},
          Case{"one subvolume", {.size = {60, 50, 3}}, 1},
          Case{"one plane", {.size = {200, 150, 1}}, 2}}) {
        SCOPED_TRACE(c.what);
        SubvolumeRun run(c.settings);
        ASSERT_EQ(run.Cut(), 0);
        ASSERT_EQ(run.logs->size(), c.subvolumes);
        if (c.asRestored) {
            ASSERT_EQ(BlendAsRestored(run, run.BlendingLog()), 0);
        } else {
            run.RestoreUnchanged();
            ASSERT_EQ(Blend(run, run.BlendingLog()), 0);
        }
        EXPECT_EQ(Mismatches(ReadRaw(run.Output()), run.stack), 0);
        EXPECT_EQ(run.temp.Count(), 0u);
        EXPECT_EQ(run.files.Count(), 2u); // the stack and the result
    }
}

// The output is written through the name the host gave, never deleted and made anew: a
// symbolic link keeps pointing at its file, which gets the whole stack and nothing of its old
// longer contents; a second hard link sees the result; a link to a device that refuses every
// byte stays a link and the blending fails. Both modalities, since transmitted light takes a
// last pass over the output.
TEST(cBlendingTest, OutputIsWrittenThroughTheNameGiven) {
    namespace fs = std::filesystem;
    enum class Kind { LinkToLongerFile, SecondHardLink, LinkToFullDevice };
    for (const bool transmitted : {false, true}) {
        for (const Kind kind :
             {Kind::LinkToLongerFile, Kind::SecondHardLink, Kind::LinkToFullDevice}) {
            SCOPED_TRACE(std::string(transmitted ? "transmitted, " : "widefield, ") +
                         (kind == Kind::LinkToLongerFile ? "link to a longer file"
                          : kind == Kind::SecondHardLink ? "second hard link"
                                                         : "link to /dev/full"));
            if (kind == Kind::LinkToFullDevice && !fs::exists("/dev/full"))
                continue;
            SubvolumeRun run;
            if (transmitted)
                run.Parameters().SetFlag(DEC_FPARAMS_MODALITY, DEC_FLAG_MOD_TL_BRIGHTFIELD);
            ASSERT_EQ(run.Cut(), 0);
            run.RestoreUnchanged();
            const std::string target = run.files.File("target");
            if (kind == Kind::LinkToFullDevice) {
                fs::create_symlink("/dev/full", run.Output());
            } else {
                WriteRaw(target, std::vector<float>(run.stack.pixels.size() + 100, -1.0f));
                if (kind == Kind::LinkToLongerFile)
                    fs::create_symlink(target, run.Output());
                else
                    fs::create_hard_link(target, run.Output());
            }
            const uint16_t result = Blend(run, run.BlendingLog());
            if (kind == Kind::LinkToFullDevice) {
                EXPECT_NE(result, 0);
                EXPECT_TRUE(fs::is_symlink(run.Output()));
                continue;
            }
            ASSERT_EQ(result, 0);
            EXPECT_EQ(fs::is_symlink(run.Output()), kind == Kind::LinkToLongerFile);
            EXPECT_EQ(Mismatches(ReadRaw(target), run.stack), 0);
            EXPECT_EQ(run.files.Count(), 3u); // the stack, the output and its other name
        }
    }
}

// The subvolume PSFs are laid side by side, whole and unweighted, in a stack of three by
// three padded PSFs, whatever the overlap.
TEST(cBlendingTest, PsfsOfTheSubvolumesFormAMosaic) {
    SubvolumeRun run;
    ASSERT_EQ(run.Cut(), 0);
    run.RestoreUnchanged();
    const uint32_t p = 90, pz = 8;
    for (uint32_t i = 0; i < 9; ++i) {
        cDeconParameter& sub = (*run.logs)[i]->GetParameters();
        const std::string psf = sub.GetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE) + "_psf";
        sub.SetString(DEC_SPARAMS_OUTPUT_PSF_FILE, psf);
        std::vector<float> pixels(std::size_t{p} * p * pz);
        for (std::size_t k = 0; k < pixels.size(); ++k)
            pixels[k] = float(i) * 1e6f + float(k);
        WriteRaw(psf, pixels);
    }
    cCountedPtr<cDeconLog> log = run.BlendingLog();
    log->GetParameters().SetBool(DEC_BPARAMS_SAVE_PSF, true);
    log->GetParameters().SetString(DEC_SPARAMS_OUTPUT_PSF_FILE, run.files.File("psf"));
    ASSERT_EQ(Blend(run, log), 0);

    const std::vector<float> mosaic = ReadRaw(run.files.File("psf"));
    ASSERT_EQ(mosaic.size(), std::size_t{3 * p} * 3 * p * pz);
    int wrong = 0;
    for (uint32_t z = 0; z < pz; ++z)
        for (uint32_t y = 0; y < 3 * p; ++y)
            for (uint32_t x = 0; x < 3 * p; ++x) {
                const uint32_t tile = (y / p) * 3 + x / p;
                const float expected =
                    float(tile) * 1e6f + float((std::size_t{z} * p + y % p) * p + x % p);
                wrong += mosaic[(std::size_t{z} * 3 * p + y) * 3 * p + x] != expected;
            }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(Mismatches(ReadRaw(run.Output()), run.stack), 0);
    EXPECT_EQ(run.temp.Count(), 0u);
}

// A stack mostly below 0 is raised by one pedestal for the whole stack, cut or not. Cut, it
// is blended once (from the result files, or a band at a time as the restorations come)
// and read back from the output for the second look and the pedestal; in one piece, it is
// blended whole in memory. Every way the output is the step applied to the whole stack at
// once, the two ways of the cut agree bit for bit, and no subvolume file is left.
TEST(cBlendingTest, OnePedestalRaisesTheWholeStackHoweverItWasCut) {
    CutSettings whole;
    whole.memory = int64_t{1} << 30;
    std::vector<float> fromFiles;
    for (const auto& [what, settings, subvolumes] :
         {std::tuple{"cut", CutSettings{}, 9u}, std::tuple{"cut, as restored", CutSettings{}, 9u},
          std::tuple{"one piece", whole, 1u}}) {
        SCOPED_TRACE(what);
        SubvolumeRun run(settings);
        ASSERT_EQ(run.Cut(), 0);
        ASSERT_EQ(run.logs->size(), subvolumes);
        constexpr float kOffset = -220.0f;
        const bool asRestored = std::string(what) == "cut, as restored";
        if (!asRestored)
            run.RestoreUnchanged(kOffset);
        double sum = 0;
        for (float v : run.stack.pixels)
            sum += v;
        cCountedPtr<cDeconLog> log = run.BlendingLog();
        log->GetParameters().SetBool(DEC_BPARAMS_STACK_ESTIMATES, true);
        log->GetParameters().SetReal(DEC_RPARAMS_STACK_SUM, static_cast<float>(sum));
        // An older, longer output is written over; its tail must go.
        WriteRaw(run.Output(), std::vector<float>(run.stack.pixels.size() + 100, -1.0f));
        ASSERT_EQ(asRestored ? BlendAsRestored(run, log, kOffset) : Blend(run, log), 0);

        const cImageDimensions& size = run.stack.size;
        const cFloatImagePtr expected = MakeImage(size, [&](uint32_t x, uint32_t y, uint32_t z) {
            return run.stack.At(x, y, z) + kOffset;
        });
        cStackNonNegativity step(
            static_cast<float>(sum),
            cImageNonNegativityLinearCompressionConstraint::kToleratedNegativeShare,
            double(size.Voxels()));
        step.FirstLook(expected);
        ASSERT_TRUE(step.NeedsPedestal());
        step.SecondLook(expected);
        step.Apply(expected);
        const std::vector<float> output = ReadRaw(run.Output());
        ASSERT_EQ(output.size(), size.Voxels());
        const std::vector<float> want = Pixels(expected);
        int wrong = 0;
        for (std::size_t i = 0; i < want.size(); ++i)
            wrong += std::fabs(output[i] - want[i]) > 1e-4f * (1.0f + std::fabs(want[i]));
        EXPECT_EQ(wrong, 0);
        EXPECT_EQ(run.temp.Count(), 0u);
        if (std::string(what) == "cut")
            fromFiles = output;
        if (asRestored) {
            EXPECT_TRUE(output == fromFiles);
        }
    }
}

// A blending takes the restorations as they come only where that writes the one stack Blend
// would: one final state (any number of passes, none saved before the last), a band within
// the room given, an output that can be read back. Nothing is written where it declines.
TEST(cBlendingTest, TakesTheRestorationsAsTheyComeOnlyWhereItWritesTheSameStack) {
    struct Case {
        const char* what;
        int32_t passes, interval;
        int64_t room;
        bool device, takes;
    };
    const int64_t kAmple = int64_t{1} << 30;
    for (const Case& c : {Case{"one state", 0, 0, kAmple, false, true},
                          Case{"ten passes, the last kept", 10, 0, kAmple, false, true},
                          Case{"every fifth pass kept", 10, 5, kAmple, false, false},
                          Case{"no room for the band", 0, 0, 1000, false, false},
                          Case{"a device", 0, 0, kAmple, true, false}}) {
        SCOPED_TRACE(c.what);
        SubvolumeRun run;
        ASSERT_EQ(run.Cut(), 0);
        cCountedPtr<cDeconLog> log = run.BlendingLog();
        cDeconParameter& p = log->GetParameters();
        p.SetInt(DEC_IPARAMS_TOTAL_ITERATIONS, c.passes);
        p.SetInt(DEC_IPARAMS_SAVE_INTERVAL, c.interval);
        if (c.device)
            p.SetString(DEC_SPARAMS_ORIGINAL_FILE, "/dev/null");
        else
            WriteRaw(run.Output(), std::vector<float>(10, 1.0f));
        EXPECT_EQ(BlendingOf(run, log)->StartStreamed(c.room), c.takes);
        if (!c.device && !c.takes) {
            EXPECT_EQ(ReadRaw(run.Output()).size(), 10u);
        }
    }
}

// The band's memory stays for the next cut of the same size, but bands of other sizes never
// pile up: one is kept at most, given back before another size is taken, and when a run
// has less room than it takes.
TEST(cBlendingTest, ABandIsKeptForTheNextCutOfItsSizeAndNoOther) {
    Testing::cLimitedRegionSource source;
    cRegionSource& previous = cRegionSource::Install(source);
    cBlendingBand::KeepAtMost(0);
    TempDir dir("ovd-band");
    cCountedPtr<cUnmanagedRawFileWriter> writer(new cUnmanagedRawFileWriter(dir.File("out")));
    const cBlendingBand::cLayout small{{40, 30, 2}, {2, 2, 1}, {24, 19, 1}, 8};
    cBlendingBand::cLayout large = small;
    large.stack.z = 3;
    const auto use = [&](const cBlendingBand::cLayout& layout) {
        cBlendingBand band(layout, writer, cCountedPtr<cStackNonNegativity>());
    };
    for (const auto& [layout, acquired, released] :
         {std::tuple{small, 1, 0}, std::tuple{small, 1, 0}, std::tuple{large, 2, 1}}) {
        use(layout);
        EXPECT_EQ(source.acquired, acquired);
        EXPECT_EQ(source.released, released);
        EXPECT_EQ(source.LiveRegions(), 1u);
    }
    cBlendingBand::KeepAtMost(cBlendingBand::BandBytes(large));
    EXPECT_EQ(source.LiveRegions(), 1u);
    cBlendingBand::KeepAtMost(cBlendingBand::BandBytes(large) - 1);
    EXPECT_EQ(source.LiveRegions(), 0u);
    cRegionSource::Install(previous);
}

TEST(cBlendingTest, RefusesWhatItCannotJoin) {
    cBlending blending;
    EXPECT_EQ(blending.Blend(), 1);
    blending.SetLog(new cDeconLog);
    EXPECT_EQ(blending.Blend(), 1);
    blending.SetSubvolumeLogs(MakeCountedArray<cCountedPtr<cDeconLog>>(0));
    EXPECT_EQ(blending.Blend(), 1);

    // Subvolumes stacked in z have no place in a slice's mosaic.
    SubvolumeRun run;
    ASSERT_EQ(run.Cut(), 0);
    run.RestoreUnchanged();
    for (const auto& subvolume : *run.logs)
        subvolume->GetParameters().SetInt(DEC_IPARAMS_SUBVOLUME_ZNUMBEROFVOLUMES, 2);
    EXPECT_THROW(Blend(run, run.BlendingLog()), cException);

    // A blending that takes the restorations as they come refuses one out of turn, and an
    // end before the last; the old output it was replacing is then left empty, never half
    // old and half new.
    SubvolumeRun streamed;
    ASSERT_EQ(streamed.Cut(), 0);
    WriteRaw(streamed.Output(), std::vector<float>(100, 1.0f));
    {
        cCountedPtr<cBlending> blending = BlendingOf(streamed, streamed.BlendingLog());
        ASSERT_TRUE(blending->StartStreamed(int64_t{1} << 30));
        const cDeconParameter& p = (*streamed.logs)[1]->GetParameters();
        const cFloatImagePtr second = Constant(
            {uint32_t(p.GetInt(DEC_IPARAMS_SUBVOLUME_WIDTH)),
             uint32_t(p.GetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT)),
             uint32_t(p.GetInt(DEC_IPARAMS_SUBVOLUME_DEPTH))},
            1.0f);
        EXPECT_THROW(blending->AddRestored(1, second), cException);
        EXPECT_THROW(blending->FinishStreamed(), cException);
    }
    EXPECT_TRUE(ReadRaw(streamed.Output()).empty());

    // It answers false for a restoration with a pixel that is no finite number where the
    // blending takes it, not for one in a guard band that it never reads; the row of the
    // first is not written.
    const float inf = std::numeric_limits<float>::infinity();
    for (const float value : {inf, -inf, std::numeric_limits<float>::quiet_NaN()}) {
        SCOPED_TRACE(value);
        SubvolumeRun run;
        ASSERT_EQ(run.Cut(), 0);
        cCountedPtr<cBlending> blending = BlendingOf(run, run.BlendingLog());
        ASSERT_TRUE(blending->StartStreamed(int64_t{1} << 30));
        const cDeconParameter& p = (*run.logs)[0]->GetParameters();
        const cImageDimensions padded{uint32_t(p.GetInt(DEC_IPARAMS_SUBVOLUME_WIDTH)),
                                      uint32_t(p.GetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT)),
                                      uint32_t(p.GetInt(DEC_IPARAMS_SUBVOLUME_DEPTH))};
        const cFloatImagePtr guarded = Constant(padded, 1.0f);
        *guarded->GetPixelPointer(0, 0, 0) = value;
        EXPECT_TRUE(blending->AddRestored(0, guarded));
        const cFloatImagePtr taken = Constant(padded, 1.0f);
        *taken->GetPixelPointer(padded.x / 2, padded.y / 2, padded.z / 2) = value;
        EXPECT_TRUE(blending->AddRestored(1, Constant(padded, 1.0f)));
        EXPECT_FALSE(blending->AddRestored(2, taken));
        blending = cCountedPtr<cBlending>();
        EXPECT_TRUE(ReadRaw(run.Output()).empty());
    }
}

} // namespace
