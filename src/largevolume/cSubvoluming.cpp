#include "largevolume/cSubvoluming.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "core/cFailureReason.h"
#include "core/cMessageSink.h"
#include "decon/cIntensityCorrectionConstraint.h"
#include "decon/cSpecifiedValueBackgroundSubtractionConstraint.h"
#include "decon/cSubvolumeInterpolationConstraint.h"
#include "decon/cTLBInversionConstraint.h"
#include "io/cTempFileGenerator.h"
#include "io/cUnmanagedRawFileReader.h"
#include "io/cUnmanagedRawFileWriter.h"
#include "largevolume/FreeDiskSpace.h"
#include "largevolume/StackFileCheck.h"
#include "largevolume/cBinning.h"
#include "largevolume/cDynamicSubvolumeCalculator.h"
#include "largevolume/cImageStatistics.h"
#include "largevolume/cLargeVolumeProcessingFramework.h"
#include "largevolume/cMaximumProjectionInitialImageSource.h"
#include "largevolume/cMinimumProjectionInitialImageSource.h"
#include "largevolume/cSliceInitialImageSource.h"
#include "largevolume/cStackPlane.h"
#include "largevolume/cStaticSubvolumeCalculator.h"
#include "largevolume/cSumProjectionInitialImageSource.h"
#include "largevolume/cSuperResolution.h"
#include "largevolume/cVolumeInitialImageSource.h"
#include "math/cFFT.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

namespace {

// The pass of a processing framework over a stack held in memory: every slice, seen as an
// image of its own without a copy, to the action's Process in slice order, then Finish.
// The action must leave the slices as they are. 0 or the action's first code.
int PassThrough(const cFloatImagePtr& stack, cProcessingAction& action) {
    const cImageDimensions plane{stack->GetSizeX(), stack->GetSizeY(), 1};
    for (uint32_t z = 0; z < stack->GetSizeZ(); ++z) {
        cFloatImagePtr slice(
            new cOvdImage<float>(stack->GetSlicePointer(z), plane, Contiguous3D, "cSubvoluming"));
        if (int result = action.Process(slice, z))
            return result;
    }
    return action.Finish();
}

// Code of a disk that can't hold what the run writes.
constexpr int kNoRoom = 5;
// Code of a stack whose values no restoration can carry.
constexpr int kRunFailed = 1;

// A file of the cut that did not reach the temporary directory whole: the reason names the
// file and what the system said.
int NotWritten(const std::string& what, const std::string& file,
               const cUnmanagedRawFileWriter& writer) {
    cFailureReason::Record(what + " could not be written in the temporary directory, " + file +
                           " (" + writer.GetLastError() + ")");
    return kNoRoom;
}

// Sizes, counts and factors are kept as signed ints in the log; below 0 means nothing.
uint32_t Count(const cDeconParameter& parameters, DecIntKey key) {
    const int32_t value = parameters.GetInt(key);
    return value < 0 ? 0u : static_cast<uint32_t>(value);
}

int32_t Signed(uint32_t value) {
    return static_cast<int32_t>(value);
}

cImageDimensions StackSize(const cDeconParameter& parameters) {
    return {Count(parameters, DEC_IPARAMS_SUBVOLUME_WIDTH),
            Count(parameters, DEC_IPARAMS_SUBVOLUME_HEIGHT),
            Count(parameters, DEC_IPARAMS_SUBVOLUME_DEPTH)};
}

std::string Megabytes(double bytes) {
    return std::to_string(static_cast<long long>(std::ceil(bytes / (1 << 20)))) + " MB";
}

// The cut refuses a stack for one reason a host can act on; say which, since the run ends
// with the code of a full disk.
void RecordCutRefused(const cDeconParameter& parameters, const cImageDimensions& size) {
    const int32_t guard = parameters.GetInt(DEC_IPARAMS_SUBVOLUME_XYGUARDBAND);
    const std::string stack = std::to_string(size.x) + " x " + std::to_string(size.y);
    if (guard >= 0 && (uint32_t(guard) >= size.x || uint32_t(guard) >= size.y))
        cFailureReason::Record(
            "the stack can't be cut into subvolumes: its x and y guard band of " +
            std::to_string(guard) + " pixels must be smaller than its width and height (" + stack +
            ")");
    else
        cFailureReason::Record("the stack of " + stack +
                               " pixels can't be cut into subvolumes with these guard bands and "
                               "this overlap in the memory budget");
}

} // namespace

cSubvoluming::cSubvoluming()
    : cOvdObject("cSubvoluming"), mSubvolumeLogs(MakeCountedArray<cCountedPtr<cDeconLog>>(0)) {}

cSubvoluming::~cSubvoluming() {
    // UTF-8, like every message line of the library: hosts and terminals read it as such.
    cMessageSink::Stream() << "Ich bin die Zerst\u00F6rer!" << '\n' << std::flush;
}

void cSubvoluming::SetStatistics(const cCountedPtr<cImageStatistics>& statistics) {
    Guard([&] { mStatistics = statistics; });
}

void cSubvoluming::SetStatusCallback(ovdStatusCallback callback, void* userData) {
    Guard([&] {
        mCallback = callback;
        mStatusHandler =
            callback
                ? cCountedPtr<cStatusUpdateHandler>(new cStatusUpdateHandler(callback, userData))
                : cCountedPtr<cStatusUpdateHandler>();
    });
}

void cSubvoluming::SetStatusCallback(ovdStatusCallback callback) {
    SetStatusCallback(callback, nullptr);
}

void cSubvoluming::SetLog(const cCountedPtr<cDeconLog>& log) {
    Guard([&] { mLog = log; });
}

cSubvolumeLogList cSubvoluming::GetSubvolumeLogs() {
    return Guard([&] { return mSubvolumeLogs; });
}

bool cSubvoluming::LoneWithoutResampling() {
    const cDeconParameter& p = mLog->GetParameters();
    if (Count(p, DEC_IPARAMS_BINFACTOR) > 1 || Count(p, DEC_IPARAMS_SUBPIXEL_XY_FACTOR) > 1 ||
        Count(p, DEC_IPARAMS_SUBPIXEL_Z_FACTOR) > 1)
        return false;
    if (p.GetBool(DEC_BPARAMS_IS_2D) && Count(p, DEC_IPARAMS_SUBVOLUME_DEPTH) > 1)
        return false;
    if (CreateCalculator() != 0 || mCalculator->CalculateSubvolumes() != 0)
        return false;
    return mCalculator->GetSubvolumeCount().Voxels() == 1;
}

// The stack goes through memory once: read whole as the subvolume's window, its statistics
// taken from the window's slices as the pass over the file takes them from its own, then
// corrected, and the whole-stack estimate taken from the corrected slices; the same numbers
// as the passes over the file, which this skips.
int cSubvoluming::PrepareLone() {
    GenerateInitialImage();
    mSubvolumeLogs = MakeCountedArray<cCountedPtr<cDeconLog>>(0);
    if (mStatusHandler) {
        mProgress = 10.0f;
        ReportProgress(0, 0);
    }
    if (int result = mCalculator->CalculateGuardBands())
        return result;
    const cDeconParameter& run = mLog->GetParameters();
    cImageBox box;
    cImagePosition offset;
    cImageDimensions size, padded;
    mCalculator->GetSubvolumeRegion(0, 0, 0, box, offset, size, padded);
    if (!mStatistics)
        Fail("NULL ImageStatistics", 1);
    // A file too short for the stack is refused before any slice is used, as the pass
    // over it refuses it.
    const cImageDimensions stack = StackSize(run);
    if (!FileHoldsStack(run.GetString(DEC_SPARAMS_ORIGINAL_FILE), stack.x, stack.y, stack.z,
                        mStackPixelBytes))
        return cLargeVolumeProcessingFramework::kNoInput;
    cFloatImagePtr window(new cOvdImage<float>(size, Contiguous2D, GetObjectName()));
    ReadWindow(run, box, window);
    if (int result = PassThrough(window, *mStatistics))
        return result;
    if (int result = CheckStackValues())
        return result;
    for (const cPixelCorrectionPtr& correction : SliceCorrections(box.z0, box.z1)) {
        correction->Setup();
        correction->Apply(window);
    }
    if (run.GetBool(DEC_BPARAMS_STACK_ESTIMATES))
        if (int result = EstimateForTheWholeStack(window))
            return result;
    mLoneWindow = window;
    if (mStatusHandler)
        mProgressStep = 90.0f;
    if (int result = ProcessSubvolume(0, 0, 0))
        return result;
    if (mStatusHandler) {
        mProgress += mProgressStep;
        ReportProgress(1, 1);
    }
    return 0;
}

cFloatImagePtr cSubvoluming::TakeSubvolume(std::size_t index) {
    return Guard([&] {
        if (index == 0 && mLone) {
            cFloatImagePtr lone = mLone;
            mLone = cFloatImagePtr();
            return lone;
        }
        if (index >= mHanded.size())
            Fail("No subvolume " + std::to_string(index) + " to hand over in TakeSubvolume", 2);
        return CutImage(mHanded[index]);
    });
}

void cSubvoluming::AddConstraint(const cConstraintPtr& constraint) {
    Guard([&] { mConstraints.push_back(constraint); });
}

int cSubvoluming::Prepare() {
    return Guard([&]() -> int {
        if (!mLog)
            return 1;
        cDeconParameter& parameters = mLog->GetParameters();
        cTempFileGenerator::Instance().SetDirectory(
            parameters.GetString(DEC_SPARAMS_TEMP_DIRECTORY));
        if (!CheckDiskSpace())
            return kNoRoom;
        mHanded.clear();
        mInputBand = cCountedPtr<cInputBand>();
        if (mHands && LoneWithoutResampling())
            return PrepareLone();
        if (int result = ReadStack())
            return result;
        mSubvolumeLogs = MakeCountedArray<cCountedPtr<cDeconLog>>(0);
        if (mStatusHandler) {
            mProgress = 10.0f;
            ReportProgress(0, 0);
        }
        if (int result = CreateCalculator())
            return result;
        if (int result = mCalculator->CalculateSubvolumes())
            return result;
        if (int result = mCalculator->CalculateGuardBands())
            return result;
        if (int result = CheckStackValues())
            return result;
        if (parameters.GetBool(DEC_BPARAMS_STACK_ESTIMATES))
            if (int result = EstimateForTheWholeStack())
                return result;

        const cImageDimensions count = mCalculator->GetSubvolumeCount();
        // A 2D run restores every slice of the stack on its own.
        const uint32_t nz = parameters.GetBool(DEC_BPARAMS_IS_2D)
                                ? Count(parameters, DEC_IPARAMS_SUBVOLUME_DEPTH)
                                : count.z;
        const uint64_t total = uint64_t{count.x} * count.y * nz;
        if (mStatusHandler && total > 0)
            mProgressStep = 90.0f / static_cast<float>(total);
        uint64_t done = 0;
        for (uint32_t iz = 0; iz < nz; ++iz) {
            for (uint32_t iy = 0; iy < count.y; ++iy) {
                for (uint32_t ix = 0; ix < count.x; ++ix) {
                    if (int result = ProcessSubvolume(ix, iy, iz))
                        return result;
                    ++done;
                    if (mStatusHandler) {
                        mProgress += mProgressStep;
                        ReportProgress(static_cast<int16_t>(done), static_cast<int16_t>(total));
                    }
                }
            }
        }
        return 0;
    });
}

int cSubvoluming::CheckStackValues() const {
    const float low = mStatistics->GetMinimum(), high = mStatistics->GetMaximum();
    if (!std::isfinite(low) || !std::isfinite(high) || !std::isfinite(mStatistics->GetMean())) {
        cFailureReason::Record("the stack holds pixels that are not finite numbers (NaN or "
                               "infinity)");
        return kRunFailed;
    }
    // A padded subvolume's sum is what the transforms must hold; its guard bands hold values
    // between those of the stack.
    const double largest = std::max(std::fabs(double(low)), std::fabs(double(high)));
    const double voxels = double(mCalculator->GetPaddedSize().Voxels());
    if (largest * voxels > kLargestTransformSum) {
        char text[256];
        std::snprintf(text, sizeof text,
                      "the stack holds values near the float limit (up to %g): the transforms "
                      "of its %g-pixel subvolumes hold values up to %g only; scale it down",
                      largest, voxels, kLargestTransformSum / voxels);
        cFailureReason::Record(text);
        return kRunFailed;
    }
    return 0;
}

std::vector<cPixelCorrectionPtr> cSubvoluming::SliceCorrections(uint32_t firstSlice,
                                                                uint32_t lastSlice) const {
    const cDeconParameter& run = mLog->GetParameters();
    std::vector<cPixelCorrectionPtr> corrections;
    if (run.GetBool(DEC_BPARAMS_INTENSITY_CORRECTION))
        corrections.push_back(new cIntensityCorrectionConstraint(
            mStatistics->GetCorrectionProfile(), firstSlice, lastSlice));
    if (run.GetFlag(DEC_FPARAMS_MODALITY) == DEC_FLAG_MOD_TL_BRIGHTFIELD)
        corrections.push_back(
            new cTLBInversionConstraint(mStatistics->GetMinimum(), mStatistics->GetMaximum()));
    float darkCurrent = 0.0f;
    switch (run.GetFlag(DEC_FPARAMS_DARK_CURRENT_METHOD)) {
    case DEC_FLAG_DCM_AUTO_CALCULATION:
        darkCurrent = mStatistics->GetMinimum();
        break;
    case DEC_FLAG_DCM_MANUAL_INPUT:
        darkCurrent = run.GetReal(DEC_RPARAMS_DARKCURRENT);
        break;
    default:
        break;
    }
    if (darkCurrent != 0.0f)
        corrections.push_back(new cSpecifiedValueBackgroundSubtractionConstraint(darkCurrent));
    return corrections;
}

int cSubvoluming::EstimateForTheWholeStack(const cFloatImagePtr& corrected) {
    cDeconParameter& run = mLog->GetParameters();
    const cImageDimensions stack = StackSize(run);
    // A 2D run restores each slice on its own; its slices share no estimate.
    if (run.GetBool(DEC_BPARAMS_IS_2D) && stack.z > 1)
        return 0;

    // The stack as the subvolumes receive it: each slice corrected as ProcessSubvolume
    // corrects it. Every pixel counts once, in the same order for any cut.
    cCountedPtr<cStackPlane> sum;
    if (corrected) {
        sum = new cStackPlane(stack.x, stack.y, nullptr);
        if (int result = PassThrough(corrected, *sum))
            return result;
    } else {
        sum = new cStackPlane(stack.x, stack.y, [this](cFloatImagePtr& slice, uint32_t z) {
            for (const cPixelCorrectionPtr& correction : SliceCorrections(z, z)) {
                correction->Setup();
                correction->Apply(slice);
            }
        });
        cLargeVolumeProcessingFramework pass(run.GetString(DEC_SPARAMS_ORIGINAL_FILE), stack.x,
                                             stack.y, stack.z);
        pass.SetInputPixelBytes(mStackPixelBytes);
        pass.AddAction(sum);
        const int result = pass.Run();
        pass.Close();
        if (result != 0)
            return result;
    }

    // An uncut run subtracts the smallest value of its one subvolume, which is this one;
    // each subvolume of a cut takes it instead of its own smallest value.
    mStackBackground = sum->GetMinimum();
    run.SetReal(DEC_RPARAMS_STACK_SUM, static_cast<float>(sum->GetSum()));
    // The non-negativity step keeps the stack's sum; a stack that holds nothing once its
    // background is off has none to keep, and no restoration to make.
    if (!run.GetBool(DEC_BPARAMS_IS_PHASEOBJECT) && !(sum->GetSum() > 0.0))
        return kRunFailed;
    if (run.GetFlag(DEC_FPARAMS_NOISE_LEVEL) != DEC_FLAG_NOISE_LEVEL_ESTIMATE)
        return 0;

    // The regularisation is estimated from the sum over z of the interior planes of a
    // padded subvolume. For the whole stack that plane is the sum above, padded and made
    // periodic as an uncut run pads the stack: its own size plus a guard band on each side,
    // brought to a fast transform size, the odd pixel on the high side.
    const uint32_t band = Count(run, DEC_IPARAMS_SUBVOLUME_XYGUARDBAND);
    const auto padded = [&](uint32_t size) {
        return static_cast<uint32_t>(
            mCalculator->GetFastSize(static_cast<int>(size + 2 * band), 1));
    };
    const cImageDimensions size{stack.x, stack.y, 1};
    const cImageDimensions plane{padded(stack.x), padded(stack.y), 1};
    const cImageDimensions low{(plane.x - size.x) / 2, (plane.y - size.y) / 2, 0};
    const cImageDimensions high{plane.x - size.x - low.x, plane.y - size.y - low.y, 0};
    cFloatImagePtr image = sum->GetPlane();
    cSubvolumeInterpolationConstraint({0, 0, 0}, size, plane, low, high).Apply(image);

    const std::string file = NewTempFile();
    cUnmanagedRawFileWriter writer(file);
    writer.Open();
    writer.Write(image);
    if (!writer.Close() || !writer.GetLastError().empty())
        return NotWritten("the stack's summed plane", file, writer);
    run.SetString(DEC_SPARAMS_STACK_PLANE_FILE, file);
    run.SetInt(DEC_IPARAMS_STACK_PLANE_WIDTH, Signed(plane.x));
    run.SetInt(DEC_IPARAMS_STACK_PLANE_HEIGHT, Signed(plane.y));
    run.SetReal(DEC_RPARAMS_STACK_REGULARIZATION, 0.0f);
    return 0;
}

void cSubvoluming::ReportProgress(int16_t subvolume, int16_t count) {
    mStatusHandler->Update(mProgress, 0, 0, subvolume, count, 0);
}

bool cSubvoluming::PlanFiles(cPlannedFiles& planned, bool recordRefusal) {
    return Guard([&] {
        if (!mLog)
            return false;
        const cDeconParameter& parameters = mLog->GetParameters();
        cCountedPtr<cSubvolumeCalculator> calculator = NewCalculator();
        ConfigureCalculator(calculator);

        // The cut is made on the stack as the first pass will leave it.
        const uint32_t bin = Count(parameters, DEC_IPARAMS_BINFACTOR);
        const uint32_t xyFactor = Count(parameters, DEC_IPARAMS_SUBPIXEL_XY_FACTOR);
        const uint32_t zFactor = Count(parameters, DEC_IPARAMS_SUBPIXEL_Z_FACTOR);
        cImageDimensions size = calculator->GetImageSize();
        if (bin > 1) {
            size.x /= bin;
            size.y /= bin;
        } else if (xyFactor > 1 || zFactor > 1) {
            size.x *= std::max(xyFactor, 1u);
            size.y *= std::max(xyFactor, 1u);
            size.z *= std::max(zFactor, 1u);
        }
        calculator->SetImageSize(size);
        if (calculator->CalculateSubvolumes() != 0 || calculator->CalculateGuardBands() != 0) {
            if (recordRefusal)
                RecordCutRefused(parameters, size);
            return false;
        }
        const cImageDimensions count = calculator->GetSubvolumeCount();
        planned.subvolumes = double(count.x) * count.y * count.z;
        planned.subvolumeBytes = double(calculator->GetPaddedSize().Voxels()) * sizeof(float);
        const int32_t total = parameters.GetInt(DEC_IPARAMS_TOTAL_ITERATIONS);
        const int32_t interval = parameters.GetInt(DEC_IPARAMS_SAVE_INTERVAL);
        planned.states = interval > 0 ? std::max(total / interval, 1) : 1;
        return true;
    });
}

bool cSubvoluming::CheckDiskSpace() {
    return Guard([&] {
        cPlannedFiles planned;
        if (!PlanFiles(planned, true))
            return false;
        // Memory files take no room on disk.
        if (cTempFileGenerator::Instance().IsInMemory())
            return true;
        // Each subvolume has a padded input file and a result file for the final result and for
        // every saved iteration; four files' worth each leaves room for the saved PSFs and the
        // output.
        const double need = planned.states * planned.subvolumes * planned.subvolumeBytes * 4.0;
        const cDeconParameter& parameters = mLog->GetParameters();
        const int64_t free = GetFreeDiskBytes(parameters.GetString(DEC_SPARAMS_TEMP_DIRECTORY));
        if (free >= 0 && double(free) >= need)
            return true;
        cFailureReason::Record(
            free < 0 ? "the free space of the temporary directory's disk is unknown"
                     : "the temporary directory's disk has " + Megabytes(double(free)) +
                           " free; the subvolumes need " + Megabytes(need));
        return false;
    });
}

void cSubvoluming::GenerateInitialImage() {
    cCountedPtr<cInitialImageSource> source;
    switch (mLog->GetParameters().GetFlag(DEC_FPARAMS_INITIAL_IMAGE_SOURCE)) {
    case DEC_FLAG_IIS_VOLUME:
        source = new cVolumeInitialImageSource(mLog);
        break;
    case DEC_FLAG_IIS_SLICE:
        source = new cSliceInitialImageSource(mLog);
        break;
    case DEC_FLAG_IIS_MAXIMUM_PROJECTION:
        source = new cMaximumProjectionInitialImageSource(mLog);
        break;
    case DEC_FLAG_IIS_MINIMUM_PROJECTION:
        source = new cMinimumProjectionInitialImageSource(mLog);
        break;
    case DEC_FLAG_IIS_SUM_PROJECTION:
        source = new cSumProjectionInitialImageSource(mLog);
        break;
    default:
        Fail("Subvoluming: Invalid Subvoluming Image Source", 2);
    }
    source->Generate();
}

int cSubvoluming::ReadStack() {
    GenerateInitialImage();
    cDeconParameter& parameters = mLog->GetParameters();
    const std::string file = parameters.GetString(DEC_SPARAMS_ORIGINAL_FILE);
    const uint32_t bin = Count(parameters, DEC_IPARAMS_BINFACTOR);
    const uint32_t xyFactor = Count(parameters, DEC_IPARAMS_SUBPIXEL_XY_FACTOR);
    const uint32_t zFactor = Count(parameters, DEC_IPARAMS_SUBPIXEL_Z_FACTOR);
    const cImageDimensions stack = StackSize(parameters);

    cCountedPtr<cLargeVolumeProcessingFramework> framework(
        new cLargeVolumeProcessingFramework(file, stack.x, stack.y, stack.z));
    framework->SetInputPixelBytes(mStackPixelBytes);
    cCountedPtr<cBinning> binning;
    cCountedPtr<cSuperResolution> resampling;
    std::string reducedFile;
    if (bin >= 2) {
        // The binned stack becomes the run's input; the ratio maps that bring the detail back after
        // blending go to a second file.
        const std::string ratioFile = NewTempFile();
        reducedFile = NewTempFile();
        binning = new cBinning(bin, bin, stack.x, stack.y, 1, ratioFile, true);
        parameters.SetString(DEC_SPARAMS_BLEND_SOURCE_FILE, ratioFile);
        framework->AddAction(binning);
        framework->SetOutput(reducedFile);
    } else if (xyFactor > 1 || zFactor > 1) {
        reducedFile = NewTempFile();
        resampling = new cSuperResolution(std::max(xyFactor, 1u), std::max(zFactor, 1u), stack.x,
                                          stack.y, 1);
        framework->AddAction(resampling);
        framework->SetOutput(reducedFile);
    }
    if (!mStatistics)
        Fail("NULL ImageStatistics", 1);
    // Statistics come last, so they describe the stack that the subvolumes are cut from.
    framework->AddAction(mStatistics);
    const int result = framework->Run();
    framework->Close();
    if (result != 0)
        return result;

    // A binned or resampled stack is a float file of the cut's own.
    if (binning || resampling)
        mStackPixelBytes = sizeof(float);
    if (binning) {
        const cImageDimensions binned = binning->GetResultDimensions();
        parameters.SetString(DEC_SPARAMS_ORIGINAL_FILE, reducedFile);
        parameters.SetInt(DEC_IPARAMS_SUBVOLUME_WIDTH, Signed(binned.x));
        parameters.SetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT, Signed(binned.y));
        parameters.SetReal(DEC_RPARAMS_X_SPACING,
                           parameters.GetReal(DEC_RPARAMS_X_SPACING) * static_cast<float>(bin));
        parameters.SetReal(DEC_RPARAMS_Y_SPACING,
                           parameters.GetReal(DEC_RPARAMS_Y_SPACING) * static_cast<float>(bin));
    } else if (resampling) {
        // Slices are resampled in x and y only; the pass leaves their number as it was, so depth
        // and z spacing stay.
        const cImageDimensions finer = resampling->GetResultDimensions();
        const float factor = static_cast<float>(std::max(xyFactor, 1u));
        parameters.SetString(DEC_SPARAMS_ORIGINAL_FILE, reducedFile);
        parameters.SetInt(DEC_IPARAMS_SUBVOLUME_WIDTH, Signed(finer.x));
        parameters.SetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT, Signed(finer.y));
        parameters.SetReal(DEC_RPARAMS_X_SPACING,
                           parameters.GetReal(DEC_RPARAMS_X_SPACING) / factor);
        parameters.SetReal(DEC_RPARAMS_Y_SPACING,
                           parameters.GetReal(DEC_RPARAMS_Y_SPACING) / factor);
    }
    return 0;
}

void cSubvoluming::ReadWindow(const cDeconParameter& run, const cImageBox& box,
                              const cFloatImagePtr& window) const {
    const cImageDimensions stack = StackSize(run);
    const std::string& file = run.GetString(DEC_SPARAMS_ORIGINAL_FILE);
    cUnmanagedRawFileReader reader(file, stack.x, stack.y, stack.z);
    reader.SetPixelBytes(mStackPixelBytes);
    if (!reader.Open())
        Fail("Cannot open " + file + " in ProcessSubvolume", 2);
    bool complete = true;
    if ((box.x0 == 0 && box.x1 + 1 == stack.x) || mStackPixelBytes != sizeof(float)) {
        // Rows as wide as the stack follow each other in the file: one transfer a slice. A
        // stack converted as it is read comes in bands of whole rows anyway, and only the
        // window's columns are converted.
        complete = reader.ReadRegionFloat(window, box.x0, box.y0, box.z0, box.x1, box.y1, box.z1);
    } else {
        // The window's rows of a slice lie together in the file. One transfer brings them across
        // the stack's whole width, and the window's columns are copied out: fewer, larger reads
        // than one per row, for the same pages of the file.
        const uint32_t rows = box.y1 - box.y0 + 1;
        cFloatImagePtr band(new cOvdImage<float>(cImageDimensions{stack.x, rows, 1}, Contiguous3D,
                                                 GetObjectName()));
        cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
        for (uint32_t z = box.z0; z <= box.z1 && complete; ++z) {
            const uint32_t slice = z - box.z0;
            complete = reader.ReadRegionFloat(band, 0, box.y0, z, stack.x - 1, box.y1, z);
            math->CopyRectangularRoi(band, window, {box.x0, 0, 0, box.x1, rows - 1, 0},
                                     {0, 0, slice, box.x1 - box.x0, rows - 1, slice});
        }
    }
    if (!complete)
        Fail("Short stack file " + file + " in ProcessSubvolume", 2);
}

std::string cSubvoluming::NewTempFile() const {
    const char* name = cTempFileGenerator::Instance().Generate();
    if (!name)
        Fail("Cannot create a temporary file in " + cTempFileGenerator::Instance().GetDirectory(),
             2);
    return name;
}

cCountedPtr<cSubvolumeCalculator> cSubvoluming::NewCalculator() const {
    if (mLog->GetParameters().GetFlag(DEC_FPARAMS_SUBVOLUME_METHOD) == DEC_FLAG_SVM_STATIC)
        return cCountedPtr<cSubvolumeCalculator>(new cStaticSubvolumeCalculator);
    return cCountedPtr<cSubvolumeCalculator>(new cDynamicSubvolumeCalculator);
}

int cSubvoluming::CreateCalculator() {
    return Guard([&] {
        if (!mLog)
            return 1;
        mCalculator = NewCalculator();
        ConfigureCalculator(mCalculator);
        return 0;
    });
}

void cSubvoluming::ConfigureCalculator(const cCountedPtr<cSubvolumeCalculator>& calculator) {
    Guard([&] {
        if (!calculator || !mLog)
            Fail("NULL calculator or log in ConfigureCalculator", 2);
        const cDeconParameter& p = mLog->GetParameters();
        const bool is2D = p.GetBool(DEC_BPARAMS_IS_2D);
        calculator->SetImageSize(StackSize(p));
        calculator->SetOverlap(Count(p, DEC_IPARAMS_SUBVOLUME_OVERLAP));
        calculator->SetXYGuardBand(Count(p, DEC_IPARAMS_SUBVOLUME_XYGUARDBAND));
        calculator->SetZGuardBand(is2D ? 0u : Count(p, DEC_IPARAMS_SUBVOLUME_ZGUARDBAND));
        calculator->SetXYMontage(p.GetBool(DEC_BPARAMS_SUBVOLUME_XYMONTAGE));
        calculator->SetZMontage(p.GetBool(DEC_BPARAMS_SUBVOLUME_ZMONTAGE));
        calculator->SetConfocal(p.GetBool(DEC_BPARAMS_IS_CONFOCAL));
        calculator->SetMemorySize(p.GetInt64(DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE));
        calculator->SetIs2D(is2D);
    });
}

int cSubvoluming::ProcessSubvolume(uint32_t ix, uint32_t iy, uint32_t iz) {
    return Guard([&]() -> int {
        if (!mLog || !mCalculator)
            Fail("Subvolumes requested before the cut in ProcessSubvolume", 2);
        if (!mStatistics)
            Fail("NULL ImageStatistics", 1);
        const cDeconParameter& run = mLog->GetParameters();
        cCountedPtr<cDeconLog> log(new cDeconLog(*mLog));
        cDeconParameter& p = log->GetParameters();

        cImageBox box;
        cImagePosition offset;
        cImageDimensions size, padded;
        mCalculator->GetSubvolumeRegion(ix, iy, iz, box, offset, size, padded);
        const cImageDimensions low = mCalculator->GetLowGuardBand();
        const cImageDimensions high = mCalculator->GetHighGuardBand();
        const cImageDimensions count = mCalculator->GetSubvolumeCount();
        auto put = [&p](DecIntKey x, DecIntKey y, DecIntKey z, const cImageDimensions& v) {
            p.SetInt(x, Signed(v.x));
            p.SetInt(y, Signed(v.y));
            p.SetInt(z, Signed(v.z));
        };
        put(DEC_IPARAMS_SUBVOLUME_WIDTH, DEC_IPARAMS_SUBVOLUME_HEIGHT, DEC_IPARAMS_SUBVOLUME_DEPTH,
            padded);
        p.SetInt(DEC_IPARAMS_SUBVOLUME_OVERLAP, Signed(mCalculator->GetOverlap()));
        put(DEC_IPARAMS_SUBVOLUME_XINDEX, DEC_IPARAMS_SUBVOLUME_YINDEX,
            DEC_IPARAMS_SUBVOLUME_ZINDEX, {ix, iy, iz});
        put(DEC_IPARAMS_SUBVOLUME_X1GUARDBAND, DEC_IPARAMS_SUBVOLUME_Y1GUARDBAND,
            DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND, low);
        put(DEC_IPARAMS_SUBVOLUME_X2GUARDBAND, DEC_IPARAMS_SUBVOLUME_Y2GUARDBAND,
            DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND, high);
        put(DEC_IPARAMS_SUBVOLUME_XNUMBEROFVOLUMES, DEC_IPARAMS_SUBVOLUME_YNUMBEROFVOLUMES,
            DEC_IPARAMS_SUBVOLUME_ZNUMBEROFVOLUMES, count);
        put(DEC_IPARAMS_SUBVOLUME_EXTENDED_WIDTH, DEC_IPARAMS_SUBVOLUME_EXTENDED_HEIGHT,
            DEC_IPARAMS_SUBVOLUME_EXTENDED_DEPTH, size);
        put(DEC_IPARAMS_SUBVOLUME_STARTX_IN_EXSUBVOLUME,
            DEC_IPARAMS_SUBVOLUME_STARTY_IN_EXSUBVOLUME,
            DEC_IPARAMS_SUBVOLUME_STARTZ_IN_EXSUBVOLUME, {offset.x, offset.y, offset.z});
        p.SetReal(DEC_RPARAMS_IMAGE_MAXIMUM, mStatistics->GetMaximum());
        p.SetReal(DEC_RPARAMS_IMAGE_MINIMUM, mStatistics->GetMinimum());

        p.SetBool(DEC_BPARAMS_IS_TLB,
                  run.GetFlag(DEC_FPARAMS_MODALITY) == DEC_FLAG_MOD_TL_BRIGHTFIELD);
        if (run.GetBool(DEC_BPARAMS_STACK_ESTIMATES)) {
            // What is left of the background once the cut has corrected the stack is the
            // whole stack's, not this subvolume's: the restoration subtracts it as given.
            p.SetFlag(DEC_FPARAMS_DARK_CURRENT_METHOD, DEC_FLAG_DCM_MANUAL_INPUT);
            p.SetReal(DEC_RPARAMS_DARKCURRENT, mStackBackground);
        }
        // A handed subvolume is cut when the caller takes it; a lone one now, from the
        // window PrepareLone read.
        cFloatImagePtr image;
        if (!mHands || mLoneWindow)
            image = CutImage({ix, iy, iz});
        const std::string input = NewTempFile();
        const std::string result = NewTempFile();
        p.SetString(DEC_SPARAMS_ORIGINAL_FILE, input);
        p.SetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE, result);
        if (mHands) {
            if (image)
                mLone = image;
            else
                mHanded.push_back({ix, iy, iz});
            mSubvolumeLogs->push_back(log);
            return 0;
        }
        cUnmanagedRawFileWriter writer(input);
        writer.Open();
        writer.Write(image);
        if (!writer.Close() || !writer.GetLastError().empty())
            return NotWritten("a padded subvolume", input, writer);
        mSubvolumeLogs->push_back(log);
        return 0;
    });
}

cFloatImagePtr cSubvoluming::CutImage(const cImageDimensions& index) {
    if (!mLog || !mCalculator)
        Fail("Subvolumes requested before the cut in CutImage", 2);
    cImageBox box;
    cImagePosition offset;
    cImageDimensions size, padded;
    mCalculator->GetSubvolumeRegion(index.x, index.y, index.z, box, offset, size, padded);
    cFloatImagePtr image = mLoneWindow;
    mLoneWindow = cFloatImagePtr();
    mConstraints.clear();
    cCountedPtr<cSubvolumeInterpolationConstraint> padding(new cSubvolumeInterpolationConstraint(
        {offset.x, offset.y, offset.z}, size, padded, mCalculator->GetLowGuardBand(),
        mCalculator->GetHighGuardBand()));
    if (!image) {
        // A window from the band of its row is padded straight from the band; the window's
        // image then only stands for it.
        image = WindowOf(size);
        if (const std::shared_ptr<const cWindowLines> lines = BandLines(box))
            padding->ReadFrom(lines);
        else
            ReadWindow(mLog->GetParameters(), box, image);
        // The window's pixels are corrected as the padding reads them.
        padding->CorrectFirst(SliceCorrections(box.z0, box.z1));
    }
    mConstraints.push_back(padding);
    for (const cConstraintPtr& constraint : mConstraints) {
        constraint->Setup();
        constraint->Apply(image);
    }
    return image;
}

uint64_t cSubvoluming::LargestBandBytes(const cImageDimensions& stack) const {
    const cImageDimensions count = mCalculator->GetSubvolumeCount();
    uint64_t largest = 0;
    for (uint32_t z = 0; z < count.z; ++z)
        for (uint32_t y = 0; y < count.y; ++y) {
            cImageBox box;
            cImagePosition offset;
            cImageDimensions extent, padded;
            mCalculator->GetSubvolumeRegion(0, y, z, box, offset, extent, padded);
            largest = std::max(largest, cInputBand::BytesFor(stack, box, mStackPixelBytes));
        }
    return largest;
}

std::shared_ptr<const cWindowLines> cSubvoluming::BandLines(const cImageBox& box) {
    const cDeconParameter& run = mLog->GetParameters();
    const cImageDimensions stack = StackSize(run);
    // A lone column of windows reads what a band would hold. The band's memory is sized
    // for the largest of the cut.
    const uint64_t largest = LargestBandBytes(stack);
    const bool banded = mCalculator->GetSubvolumeCount().x > 1 &&
                        largest <= uint64_t(std::max<int64_t>(0, mInputBandRoom)) &&
                        cInputBand::BytesFor(stack, box, mStackPixelBytes) <= largest;
    if (!banded) {
        mInputBand = cCountedPtr<cInputBand>();
        return nullptr;
    }
    const std::string& file = run.GetString(DEC_SPARAMS_ORIGINAL_FILE);
    if (!mInputBand)
        mInputBand = new cInputBand(file, stack, mStackPixelBytes, largest);
    std::shared_ptr<const cWindowLines> lines = mInputBand->Lines(box);
    if (!lines)
        Fail("Short stack file " + file + " in ProcessSubvolume", 2);
    return lines;
}

cFloatImagePtr cSubvoluming::WindowOf(const cImageDimensions& size) {
    // Made for the first window of a cut, and again for a later cut with larger windows;
    // a window lives only while its subvolume is cut, so none still uses the memory then.
    if (!mWindowMemory || size.Voxels() > mWindowMemory->GetVoxelCount()) {
        const cImageDimensions count = mCalculator->GetSubvolumeCount();
        cImageDimensions largest{0, 0, 0};
        for (uint32_t z = 0; z < count.z; ++z)
            for (uint32_t y = 0; y < count.y; ++y)
                for (uint32_t x = 0; x < count.x; ++x) {
                    cImageBox box;
                    cImagePosition offset;
                    cImageDimensions extent, padded;
                    mCalculator->GetSubvolumeRegion(x, y, z, box, offset, extent, padded);
                    if (extent.Voxels() > largest.Voxels())
                        largest = extent;
                }
        if (size.Voxels() > largest.Voxels())
            largest = size;
        // In one block, of the same size for every cut alike, which the memory manager then
        // keeps from run to run.
        mWindowMemory = new cOvdImage<float>(largest, Contiguous3D, GetObjectName());
    }
    return new cOvdImage<float>(mWindowMemory->GetSlicePointer(0), size, Contiguous3D,
                                GetObjectName());
}

} // namespace Ovidane
