// ovd: restore, measure and model light-microscope stacks from the command line. A thin
// layer over the library's exported operations and host extensions.
#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#include "ChannelWavelengths.h"
#include "InputStack.h"
#include "MethodOptions.h"
#include "OutputOptions.h"
#include "OutputType.h"
#include "PeerFlags.h"
#include "Progress.h"
#include "PsfModelOptions.h"
#include "ResultText.h"
#include "RunLog.h"
#include "SafeOutput.h"
#include "interface/ovdinf01.h"

using namespace ovdtool;

namespace {

struct OpticsOptions {
    float na = 1.4f;
    float ri = 1.515f;
    float wavelength = 0.52f; // micrometres; values above 10 are read as nanometres
    std::string modality = "widefield";
    float sa = 0.0f;

    float WavelengthMicrometres() const { return wavelength > 10.0f ? wavelength / 1000.0f : wavelength; }
    bool Brightfield() const { return modality == "brightfield"; }
};

struct CutOptions {
    int guardXY = 10, guardZ = 6, overlap = 10;
};

// What a run may use of the machine; 0 leaves the library's own choice.
struct ResourceOptions {
    int threads = 0;
    double memoryBudgetMB = 0.0;
};

void AddInputOptions(CLI::App* command, InputOptions& input) {
    command->add_option("--size", input.size, "raw input: WxHxD");
    command->add_option("--type", input.type, "raw input: u8, u16 or f32")->check(CLI::IsMember({"u8", "u16", "f32"}));
    command->add_option("--spacing", input.spacing, "x,y,z pixel spacing in micrometres (overrides TIFF metadata)");
}

// A restore takes a wavelength per channel in `perChannel`; the others take one.
void AddOpticsOptions(CLI::App* command, OpticsOptions& optics, bool withAberration,
                      WavelengthOptions* perChannel = nullptr) {
    command->add_option("--na", optics.na, "numerical aperture of the objective")->capture_default_str();
    command->add_option("--ri", optics.ri, "refractive index of the immersion medium")->capture_default_str();
    if (perChannel)
        AddWavelengthOptions(command, *perChannel);
    else
        command->add_option("--wavelength", optics.wavelength, "emission wavelength, um (or nm when above 10)")
            ->capture_default_str();
    command->add_option("--modality", optics.modality, "widefield or brightfield")
        ->check(CLI::IsMember({"widefield", "brightfield"}))
        ->capture_default_str();
    if (withAberration)
        command->add_option("--sa", optics.sa, "spherical aberration of the theoretical PSF")->capture_default_str();
}

// The library takes these in 16-bit fields; a value is checked here, before it is narrowed,
// so that 65536 is refused instead of becoming 0.
void AddCutOptions(CLI::App* command, CutOptions& cut) {
    command->add_option("--guard-xy", cut.guardXY, "guard band in x and y, pixels (0-100)")
        ->check(CLI::Range(0, 100))
        ->capture_default_str();
    command->add_option("--guard-z", cut.guardZ, "guard band in z, slices (0-100)")
        ->check(CLI::Range(0, 100))
        ->capture_default_str();
    command->add_option("--overlap", cut.overlap, "overlap of subvolumes, pixels (0-300)")
        ->check(CLI::Range(0, 300))
        ->capture_default_str();
}

// More threads than this only wait for each other; a budget beyond this many megabytes is
// more than any machine offers, and stays far inside the 64-bit byte count it becomes.
constexpr int kMostThreads = 1024;
constexpr double kLargestBudgetMB = 1e12;

void AddResourceOptions(CLI::App* command, ResourceOptions& resources) {
    command->add_option("--threads", resources.threads, "worker threads, 1-1024 (default: all processors)")
        ->check(CLI::Range(0, kMostThreads));
    command->add_option("--memory-budget", resources.memoryBudgetMB,
                        "memory the run may plan with, MB; smaller budgets cut the stack into more pieces")
        ->check(CLI::Range(0.0, kLargestBudgetMB));
}

void ApplyResources(const ResourceOptions& resources) {
    // The range check lets NaN through; it has no byte count.
    if (std::isnan(resources.memoryBudgetMB))
        throw StackError("--memory-budget must be a number of megabytes");
    if (resources.threads > 0)
        ovdSetWorkerThreads(resources.threads);
    ovdSetMemoryBudget(int64_t(resources.memoryBudgetMB * 1024.0 * 1024.0));
}

float NoiseFactor(const std::string& noise) {
    if (noise == "auto")
        return 0.0f;
    if (noise == "low")
        return 2e-5f;
    if (noise == "medium")
        return 2e-4f;
    if (noise == "high")
        return 2e-3f;
    char* end = nullptr;
    const float value = std::strtof(noise.c_str(), &end);
    if (end == noise.c_str() || *end || !(value > 0))
        throw StackError("noise level '" + noise + "' is not auto, low, medium, high or a positive number");
    return value;
}

uint32_t DataTypeOf(PixelType type) {
    return type == PixelType::U8 ? OVD_DATATYPE_UINT8 : type == PixelType::U16 ? OVD_DATATYPE_UINT16 : OVD_DATATYPE_FLOAT32;
}

uint16_t ArgumentPixelTypeOf(PixelType type) {
    return type == PixelType::U8 ? OVD_ARG_PIXEL_UINT8 : type == PixelType::U16 ? OVD_ARG_PIXEL_UINT16 : OVD_ARG_PIXEL_FLOAT32;
}

// A measured PSF as the library reads it: raw float.
InputStack OpenPsf(const std::string& path, const InputOptions& options, const PrivateTempDir& temp) {
    InputStack psf = OpenInput(path, options, temp, "psf");
    if (psf.shape.type == PixelType::F32)
        return psf;
    const std::string floats = temp.File("psf-float.raw");
    std::ifstream in(psf.rawPath, std::ios::binary);
    std::ofstream out(floats, std::ios::binary);
    const bool words = psf.shape.type == PixelType::U16;
    for (std::size_t i = 0, n = std::size_t(psf.shape.width) * psf.shape.height * psf.shape.depth; i < n; ++i) {
        uint16_t word = 0;
        uint8_t byte = 0;
        const float value = words ? (in.read(reinterpret_cast<char*>(&word), 2), float(word))
                                  : (in.read(reinterpret_cast<char*>(&byte), 1), float(byte));
        out.write(reinterpret_cast<const char*>(&value), sizeof value);
    }
    if (!out)
        throw StackError(floats + ": cannot be written");
    psf.rawPath = floats;
    psf.shape.type = PixelType::F32;
    return psf;
}

// Exit statuses besides 0: a refused argument or input (2), an output that exists (3), a
// failure inside the library (1), a cancel (130); the argument parser's own are 100 and above.
constexpr int kRefused = 2;
constexpr int kOutputExists = 3;

int Fail(const std::string& message, int status = kRefused) {
    std::fprintf(stderr, "ovd: %s\n", message.c_str());
    return status;
}

int LibraryResult(uint16_t code) {
    if (code == OVD_RESULT_SUCCESS)
        return 0;
    if (code == OVD_RESULT_RUN_FAILED && Progress::Interrupted())
        return Fail("cancelled; nothing was written", 130);
    return Fail(ResultText(code, ovdGetLastErrorMessage()), 1);
}

struct RestoreOptions {
    OutputOptions out;
    OutputTypeOptions outputType;
    std::string input, psf, savePsf, noise = "auto", tempDir;
    InputOptions inputOptions, psfOptions;
    OpticsOptions optics;
    CutOptions cut;
    MethodOptions method;
    WavelengthOptions wavelengths;
    PsfModelOptions psfModel;
    ResourceOptions resources;
    MessageOptions messages;
};

// What the run chose, for --verbose.
void NoteChoices(RunLog& log, const RestoreOptions& o, const InputStack& input,
                 const std::vector<float>& wavelengths) {
    const StackShape& shape = input.shape;
    const Spacing& spacing = input.spacing;
    log.Note("input: %s, %d x %d x %d x %zu channel(s), spacing %g x %g x %g µm", o.input.c_str(),
             shape.width, shape.height, shape.depth, input.channelPaths.size(), spacing.x, spacing.y,
             spacing.z);
    std::string nanometres;
    for (const float wavelength : wavelengths)
        nanometres += (nanometres.empty() ? "" : ", ") + std::to_string(std::lround(wavelength * 1000));
    if (o.psf.empty())
        log.Note("PSF: theoretical %s, NA %g, immersion index %g, emission %s nm, aberration %g",
                 o.optics.modality.c_str(), o.optics.na, o.optics.ri, nanometres.c_str(), o.optics.sa);
    else
        log.Note("PSF: measured, %s", o.psf.c_str());
    if (o.method.method == "wiener")
        log.Note("method: wiener, regularisation %s",
                 o.noise == "auto" ? "estimated from the stack" : o.noise.c_str());
    else
        // Read back from the record the library gets, so the line tells what the run does.
        log.Note("method: %s, %s passes, start %s%s", o.method.method.c_str(),
                 o.method.iterations > 0 ? std::to_string(o.method.iterations).c_str() : "default",
                 o.method.method == "blind" ? "flat" : o.method.start.c_str(),
                 o.method.method != "mlem" ? ""
                 : IterativeOptionsOf(o.method).nAcceleration == OVD_ACCELERATION_LINE_SEARCH
                     ? ", line search"
                     : ", extrapolation");
    log.Note("cut: guard bands %d px (x, y) and %d slices (z), overlap %d px", o.cut.guardXY,
             o.cut.guardZ, o.cut.overlap);
    const ResourceOptions& r = o.resources;
    const int threads = r.threads > 0 ? r.threads : int(std::thread::hardware_concurrency());
    const std::string budget = r.memoryBudgetMB > 0 ? std::to_string(std::lround(r.memoryBudgetMB)) + " MB"
                                                    : "the machine's memory";
    log.Note("threads: %d; memory budget: %s", threads, budget.c_str());
}

int RunRestore(RestoreOptions o) {
    const ovdStructIterativeOps iterative = IterativeOptionsOf(o.method);
    if (o.out.path.empty())
        o.out.path = DefaultOutputName(o.input);
    const std::string& outPath = o.out.path;
    const ovdStructPsfModel model = PsfModelOf(o.psfModel);
    RefuseSharedFiles(
        {{"IN", o.input}, {"--psf", o.psf}},
        {{"OUT", outPath}, {"--save-psf", o.savePsf}, {"--log", o.messages.logFile}});
    if (!o.out.overwrite)
        RefuseExistingOutputs({{"OUT", outPath}, {"--save-psf", o.savePsf}});
    const bool tiffOut = HasTiffExtension(outPath);
    CheckOutputType(o.outputType, tiffOut);
    RunLog log(o.messages);
    ApplyResources(o.resources);
    PrivateTempDir temp(o.tempDir);
    const Stopwatch reading;
    const InputStack input = OpenInput(o.input, o.inputOptions, temp, "input", Channels::Many);
    const int channels = int(input.channelPaths.size());
    const std::vector<float> wavelengths = ChannelWavelengths(o.wavelengths, channels);
    if (channels > 1 && !tiffOut)
        throw StackError("OUT: the channels of a hyperstack are written to a TIFF (.tif)");
    if (channels > 1 && !(o.psf.empty() && o.savePsf.empty()))
        throw StackError("--psf and --save-psf hold one channel's PSF; restore a hyperstack with the "
                         "theoretical PSFs of its wavelengths, or each channel as a stack of its own");
    log.Stage("read the input", reading);
    NoteChoices(log, o, input, wavelengths);
    // The library writes fresh files only; the user's files change at the very end.
    SafeOutput output(outPath);
    std::unique_ptr<SafeOutput> savedPsf;
    if (!o.savePsf.empty())
        savedPsf = std::make_unique<SafeOutput>(o.savePsf);
    std::vector<std::string> rawOuts;
    for (int c = 0; c < channels; ++c)
        rawOuts.push_back(tiffOut ? temp.File("restored-c" + std::to_string(c + 1) + ".raw") : output.Path());
    const bool tiffPsfOut = savedPsf && HasTiffExtension(o.savePsf);
    const std::string rawPsfOut = tiffPsfOut ? temp.File("saved-psf.raw")
                                  : savedPsf ? savedPsf->Path()
                                             : std::string();
    const std::string libraryTemp = temp.File("work");
    std::filesystem::create_directory(libraryTemp);

    ovdStructInvFilterImage image{};
    image.nDataType = DataTypeOf(input.shape.type);
    image.nModality = o.optics.Brightfield() ? OVD_MODALITY_TL_BRIGHTFIELD : OVD_MODALITY_WIDEFIELD_FLUORESCENCE;
    image.sWidth = int16_t(input.shape.width);
    image.sHeight = int16_t(input.shape.height);
    image.sDepth = int16_t(input.shape.depth);
    image.sExtent4 = 1;
    image.fXSpacing = input.spacing.x;
    image.fYSpacing = input.spacing.y;
    image.fZSpacing = input.spacing.z;
    image.fNumericalAperture = o.optics.na;
    image.fRefractiveIndex = o.optics.ri;
    image.fSphericalAberration = o.optics.sa;

    ovdStructInvFilterPsf psfIn{}, psfOut{};
    InputStack psf;
    if (!o.psf.empty()) {
        psf = OpenPsf(o.psf, o.psfOptions, temp);
        psfIn.pszFile = psf.rawPath.c_str();
        psfIn.sWidth = int16_t(psf.shape.width);
        psfIn.sHeight = int16_t(psf.shape.height);
        psfIn.sDepth = int16_t(psf.shape.depth);
        psfIn.fXSpacing = psf.spacing.x;
        psfIn.fYSpacing = psf.spacing.y;
        psfIn.fZSpacing = psf.spacing.z;
    }
    psfOut.pszFile = rawPsfOut.c_str();

    ovdStructInvFilterOpsStd std{};
    ovdStructInvFilterOpsExp exp{};
    ovdInitStructInvFilterOpsStd(&std);
    ovdInitStructInvFilterOpsExp(&exp);
    std.pszTempDirectory = libraryTemp.c_str();
    exp.fNoiseFactor = NoiseFactor(o.noise);
    exp.sXYGuardBand = int16_t(o.cut.guardXY);
    exp.sZGuardBand = int16_t(o.cut.guardZ);
    exp.sOverlap = int16_t(o.cut.overlap);

    // Channel by channel, each with the PSF of its own wavelength.
    Progress::CatchInterrupt();
    for (int c = 0; c < channels; ++c) {
        image.pszFile = input.channelPaths[std::size_t(c)].c_str();
        image.fEmissionWavelength = wavelengths[std::size_t(c)];
        std.pszOutputFile = rawOuts[std::size_t(c)].c_str();
        const std::string label = channels > 1 ? "restoring channel " + std::to_string(c + 1) : "restoring";
        const Stopwatch restoring;
        uint16_t code;
        int subvolumes;
        {
            Progress progress(label.c_str());
            code = ovd3dRestoreWithPsfModel(&image, o.psf.empty() ? nullptr : &psfIn,
                                            o.savePsf.empty() ? nullptr : &psfOut, &std, &exp,
                                            &iterative, &model, &Progress::OnStatus, &progress);
            subvolumes = progress.SubvolumeCount();
        }
        if (code != OVD_RESULT_SUCCESS)
            return LibraryResult(code);
        log.Stage(label.c_str(), restoring,
                  ", " + std::to_string(subvolumes) + " subvolume" + (subvolumes == 1 ? "" : "s"));
    }

    const Stopwatch writing;
    const bool words = o.outputType.type == "u16";
    const ValueRange range = log.Shown() || words ? RangeOfRawFloat(rawOuts) : ValueRange{};
    log.Note("result: %g to %g", range.min, range.max);
    if (tiffOut) {
        const double scale = words ? ScaleFactor(o.outputType, range) : 0.0;
        if (scale > 0)
            log.Note("16-bit output: stored = restored x %g (recorded as ovd_scale)", scale);
        const StackShape shape{input.shape.width, input.shape.height, input.shape.depth};
        const uint64_t clipped =
            RawFloatToTiff(rawOuts, output.Path(), TiffOutput{shape, input.spacing, scale}, outPath);
        // Always told: the stored values no longer give back the restored ones.
        if (clipped > 0)
            std::fprintf(stderr,
                         "ovd: %llu pixels lay outside 0-65535 once scaled by %g and were clipped\n",
                         static_cast<unsigned long long>(clipped), scale);
    }
    if (tiffPsfOut)
        RawFloatToTiff(rawPsfOut, savedPsf->Path(),
                       StackShape{psfOut.sWidth, psfOut.sHeight, psfOut.sDepth},
                       Spacing{psfOut.fXSpacing, psfOut.fYSpacing, psfOut.fZSpacing}, o.savePsf);
    if (Progress::Interrupted())
        return LibraryResult(OVD_RESULT_RUN_FAILED);
    output.Commit();
    if (savedPsf)
        savedPsf->Commit();
    log.Stage("write the output", writing);
    return 0;
}

struct DetectOptions {
    std::string input, tempDir;
    InputOptions inputOptions;
    OpticsOptions optics;
    CutOptions cut;
    PsfModelOptions psfModel;
    ResourceOptions resources;
    MessageOptions messages;
    float lower = -10.0f, upper = 10.0f;
    bool fast = false;
    int binFactor = 0; // 0: the library's choice
};

int RunDetect(const DetectOptions& o) {
    // The library compares the limits only by their order, which NaN passes.
    if (!std::isfinite(o.lower) || !std::isfinite(o.upper) || o.lower > o.upper)
        throw StackError("--min and --max must be finite numbers, --min not above --max");
    const ovdStructPsfModel model = PsfModelOf(o.psfModel);
    ovdStructSASearch search;
    ovdInitStructSASearch(&search);
    if (o.fast || o.binFactor != 0) {
        search.nSearch = OVD_SA_SEARCH_BINNED;
        search.nBinFactor = uint32_t(o.binFactor);
    }
    RefuseSharedFiles({{"IN", o.input}}, {{"--log", o.messages.logFile}});
    RunLog log(o.messages);
    ApplyResources(o.resources);
    PrivateTempDir temp(o.tempDir);
    const InputStack input = OpenInput(o.input, o.inputOptions, temp, "input");
    const std::string libraryTemp = temp.File("work");
    std::filesystem::create_directory(libraryTemp);
    Progress::CatchInterrupt();
    float estimate = 0;
    uint16_t code;
    const Stopwatch searching;
    {
        Progress progress("searching");
        code = ovd3dInverseFilterDetectSAWithSearch(
            input.rawPath.c_str(), libraryTemp.c_str(), int16_t(input.shape.width),
            int16_t(input.shape.height), int16_t(input.shape.depth), input.spacing.x,
            input.spacing.y, input.spacing.z, o.optics.na, o.optics.ri,
            o.optics.WavelengthMicrometres(), 0, o.optics.Brightfield() ? 1 : 0, 0,
            int16_t(o.cut.guardXY), int16_t(o.cut.guardZ), int16_t(o.cut.overlap), 1,
            ArgumentPixelTypeOf(input.shape.type), o.lower, o.upper, &estimate, 0, 0, 0, &model,
            &search, &Progress::OnHostStatus, &progress);
    }
    if (code != OVD_RESULT_SUCCESS)
        return LibraryResult(code);
    log.Stage("searching", searching);
    std::printf("%.3f\n", estimate);
    return 0;
}

struct PsfOptions {
    OutputOptions out;
    std::string size = "64x64x32", spacing = "0.1,0.1,0.25";
    OpticsOptions optics;
    PsfModelOptions psfModel;
    MessageOptions messages;
};

int RunPsf(const PsfOptions& o) {
    const ovdStructPsfModel model = PsfModelOf(o.psfModel);
    RefuseSharedFiles({}, {{"OUT", o.out.path}, {"--log", o.messages.logFile}});
    if (!o.out.overwrite)
        RefuseExistingOutputs({{"OUT", o.out.path}});
    RunLog log(o.messages);
    const StackShape shape = ParseSize(o.size, "PSF");
    const Spacing spacing = ParseSpacing(o.spacing);
    SafeOutput output(o.out.path);
    const bool tiffOut = HasTiffExtension(o.out.path);
    // A TIFF is made from the raw stack the library writes, in a private directory.
    std::unique_ptr<PrivateTempDir> temp;
    if (tiffOut)
        temp = std::make_unique<PrivateTempDir>("");
    const std::string rawOut = tiffOut ? temp->File("psf.raw") : output.Path();
    const uint16_t code = ovdWriteTheoreticalPsfModel(
        rawOut.c_str(), int16_t(shape.width), int16_t(shape.height), int16_t(shape.depth),
        spacing.x, spacing.y, spacing.z, o.optics.na, o.optics.ri, o.optics.WavelengthMicrometres(),
        o.optics.Brightfield() ? 1 : 0, o.optics.sa, &model);
    if (code != OVD_RESULT_SUCCESS)
        return LibraryResult(code);
    if (tiffOut)
        RawFloatToTiff(rawOut, output.Path(), shape, spacing, o.out.path);
    output.Commit();
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"ovd: deconvolution of light-microscope stacks"};
    app.require_subcommand(1);
    app.set_version_flag(
        "--version", [] { return std::string("ovd ") + ovdGetVersion() + "\n" + ovdGetBackEnds(); },
        "print the version and the library's back ends");

    RestoreOptions restore;
    CLI::App* restoreCommand =
        app.add_subcommand("restore", "restore a stack: Wiener filter, ML-EM or Gold's method");
    restoreCommand->add_option("IN", restore.input, "input stack: TIFF, or raw with --size and --type")->required();
    AddOutputOptions(restoreCommand, restore.out,
                     "restored stack: TIFF (.tif) or raw float (default: IN's name with _ovd.tif)", false);
    AddInputOptions(restoreCommand, restore.inputOptions);
    AddOpticsOptions(restoreCommand, restore.optics, true, &restore.wavelengths);
    AddCutOptions(restoreCommand, restore.cut);
    restoreCommand->add_option("--noise", restore.noise, "wiener: auto, low, medium, high or a regularisation level")
        ->capture_default_str();
    AddMethodOptions(restoreCommand, restore.method);
    AddPsfModelOptions(restoreCommand, restore.psfModel);
    restoreCommand->add_option("--psf", restore.psf, "measured PSF (TIFF, or raw with --psf-size/--psf-type)");
    restoreCommand->add_option("--psf-size", restore.psfOptions.size, "raw PSF: WxHxD");
    restoreCommand->add_option("--psf-type", restore.psfOptions.type, "raw PSF: u8, u16 or f32");
    restoreCommand->add_option("--psf-spacing", restore.psfOptions.spacing, "PSF spacing x,y,z in micrometres");
    restoreCommand->add_option("--save-psf", restore.savePsf, "write the PSF used (TIFF or raw float)");
    restoreCommand->add_option("--temp-dir", restore.tempDir, "where temporary files go (default: system temp)");
    AddResourceOptions(restoreCommand, restore.resources);
    AddOutputTypeOptions(restoreCommand, restore.outputType);
    AddMessageOptions(restoreCommand, restore.messages);
    AddPeerFlagHints(restoreCommand);

    DetectOptions detect;
    CLI::App* detectCommand = app.add_subcommand("detect-sa", "estimate the spherical aberration of a stack");
    detectCommand->add_option("IN", detect.input, "input stack: TIFF, or raw with --size and --type")->required();
    AddInputOptions(detectCommand, detect.inputOptions);
    AddOpticsOptions(detectCommand, detect.optics, false);
    AddCutOptions(detectCommand, detect.cut);
    AddPsfModelOptions(detectCommand, detect.psfModel);
    detectCommand->add_option("--min", detect.lower, "lower limit of the estimate")->capture_default_str();
    detectCommand->add_option("--max", detect.upper, "upper limit of the estimate")->capture_default_str();
    detectCommand->add_flag("--fast", detect.fast,
                            "binned search: the stack binned in x and y, several times faster, "
                            "less accurate (see README)");
    detectCommand
        ->add_option("--bin-factor", detect.binFactor,
                     "binned search: x and y bin factor, 2-8 (implies --fast; default: chosen "
                     "from the stack and optics)")
        ->check(CLI::Range(2, OVD_MAX_SA_BIN_FACTOR));
    detectCommand->add_option("--temp-dir", detect.tempDir, "where temporary files go (default: system temp)");
    AddResourceOptions(detectCommand, detect.resources);
    AddMessageOptions(detectCommand, detect.messages);

    PsfOptions psf;
    CLI::App* psfCommand = app.add_subcommand("psf", "write the theoretical PSF of the optics, centred");
    AddOutputOptions(psfCommand, psf.out, "PSF stack: float TIFF (.tif) or raw float", true);
    psfCommand->add_option("--size", psf.size, "WxHxD in pixels")->capture_default_str();
    psfCommand->add_option("--spacing", psf.spacing, "x,y,z pixel spacing in micrometres")->capture_default_str();
    AddOpticsOptions(psfCommand, psf.optics, true);
    AddPsfModelOptions(psfCommand, psf.psfModel);
    AddMessageOptions(psfCommand, psf.messages);

    CLI11_PARSE(app, argc, argv);
    try {
        if (restoreCommand->parsed())
            return RunRestore(restore);
        if (psfCommand->parsed())
            return RunPsf(psf);
        return RunDetect(detect);
    } catch (const OutputExists& e) {
        return Fail(e.what(), kOutputExists);
    } catch (const StackError& e) {
        return Fail(e.what());
    } catch (const std::exception& e) {
        return Fail(e.what());
    }
}
