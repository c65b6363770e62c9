// ovd: restore, measure and model light-microscope stacks from the command line. A thin
// layer over the library's exported operations and host extensions.
#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include "InputStack.h"
#include "MethodOptions.h"
#include "Progress.h"
#include "PsfModelOptions.h"
#include "ResultText.h"
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

struct MessageOptions {
    std::string logFile;
    bool verbose = false;
};

void AddInputOptions(CLI::App* command, InputOptions& input) {
    command->add_option("--size", input.size, "raw input: WxHxD");
    command->add_option("--type", input.type, "raw input: u8, u16 or f32")->check(CLI::IsMember({"u8", "u16", "f32"}));
    command->add_option("--spacing", input.spacing, "x,y,z pixel spacing in micrometres (overrides TIFF metadata)");
}

void AddOpticsOptions(CLI::App* command, OpticsOptions& optics, bool withAberration) {
    command->add_option("--na", optics.na, "numerical aperture of the objective")->capture_default_str();
    command->add_option("--ri", optics.ri, "refractive index of the immersion medium")->capture_default_str();
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

void AddMessageOptions(CLI::App* command, MessageOptions& messages) {
    command->add_option("--log", messages.logFile, "write the library's message lines to this file");
    command->add_flag("--verbose", messages.verbose, "show the library's message lines on stderr");
}

// The library's message lines: silent unless asked for. A log file is closed when the
// command ends, and the library is silenced first, since it may still speak at exit.
class MessageRoute {
public:
    explicit MessageRoute(const MessageOptions& messages) {
        if (!messages.logFile.empty()) {
            mLog = std::make_unique<std::ofstream>(messages.logFile);
            if (!*mLog)
                throw StackError(messages.logFile + ": cannot write the log file");
            ovdSetMessageCallback([](const char* line, void* log) { *static_cast<std::ofstream*>(log) << line; },
                                  mLog.get());
        } else if (messages.verbose) {
            ovdSetMessageCallback([](const char* line, void*) { std::fputs(line, stderr); }, nullptr);
        } else {
            ovdSetMessageCallback(nullptr, nullptr);
        }
    }
    ~MessageRoute() {
        if (mLog)
            ovdSetMessageCallback(nullptr, nullptr);
    }
    MessageRoute(const MessageRoute&) = delete;
    MessageRoute& operator=(const MessageRoute&) = delete;

private:
    std::unique_ptr<std::ofstream> mLog;
};

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

int Fail(const std::string& message, int status = 2) {
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
    std::string input, output, psf, savePsf, noise = "auto", tempDir;
    InputOptions inputOptions, psfOptions;
    OpticsOptions optics;
    CutOptions cut;
    MethodOptions method;
    PsfModelOptions psfModel;
    ResourceOptions resources;
    MessageOptions messages;
};

int RunRestore(const RestoreOptions& o) {
    const ovdStructIterativeOps iterative = IterativeOptionsOf(o.method);
    const ovdStructPsfModel model = PsfModelOf(o.psfModel);
    RefuseSharedFiles(
        {{"IN", o.input}, {"--psf", o.psf}},
        {{"OUT", o.output}, {"--save-psf", o.savePsf}, {"--log", o.messages.logFile}});
    const MessageRoute messages(o.messages);
    ApplyResources(o.resources);
    PrivateTempDir temp(o.tempDir);
    const InputStack input = OpenInput(o.input, o.inputOptions, temp, "input");
    // The library writes fresh files only; the user's files change at the very end.
    SafeOutput output(o.output);
    std::unique_ptr<SafeOutput> savedPsf;
    if (!o.savePsf.empty())
        savedPsf = std::make_unique<SafeOutput>(o.savePsf);
    const bool tiffOut = HasTiffExtension(o.output);
    const std::string rawOut = tiffOut ? temp.File("restored.raw") : output.Path();
    const bool tiffPsfOut = savedPsf && HasTiffExtension(o.savePsf);
    const std::string rawPsfOut = tiffPsfOut ? temp.File("saved-psf.raw")
                                  : savedPsf ? savedPsf->Path()
                                             : std::string();
    const std::string libraryTemp = temp.File("work");
    std::filesystem::create_directory(libraryTemp);

    ovdStructInvFilterImage image{};
    image.pszFile = input.rawPath.c_str();
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
    image.fEmissionWavelength = o.optics.WavelengthMicrometres();
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
    std.pszOutputFile = rawOut.c_str();
    std.pszTempDirectory = libraryTemp.c_str();
    exp.fNoiseFactor = NoiseFactor(o.noise);
    exp.sXYGuardBand = int16_t(o.cut.guardXY);
    exp.sZGuardBand = int16_t(o.cut.guardZ);
    exp.sOverlap = int16_t(o.cut.overlap);

    Progress::CatchInterrupt();
    uint16_t code;
    {
        Progress progress("restoring");
        code = ovd3dRestoreWithPsfModel(&image, o.psf.empty() ? nullptr : &psfIn,
                                        o.savePsf.empty() ? nullptr : &psfOut, &std, &exp,
                                        &iterative, &model, &Progress::OnStatus, &progress);
    }
    if (code != OVD_RESULT_SUCCESS)
        return LibraryResult(code);
    if (tiffOut)
        RawFloatToTiff(rawOut, output.Path(),
                       StackShape{input.shape.width, input.shape.height, input.shape.depth},
                       input.spacing, o.output);
    if (tiffPsfOut)
        RawFloatToTiff(rawPsfOut, savedPsf->Path(),
                       StackShape{psfOut.sWidth, psfOut.sHeight, psfOut.sDepth},
                       Spacing{psfOut.fXSpacing, psfOut.fYSpacing, psfOut.fZSpacing}, o.savePsf);
    if (Progress::Interrupted())
        return LibraryResult(OVD_RESULT_RUN_FAILED);
    output.Commit();
    if (savedPsf)
        savedPsf->Commit();
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
};

int RunDetect(const DetectOptions& o) {
    // The library compares the limits only by their order, which NaN passes.
    if (!std::isfinite(o.lower) || !std::isfinite(o.upper) || o.lower > o.upper)
        throw StackError("--min and --max must be finite numbers, --min not above --max");
    const ovdStructPsfModel model = PsfModelOf(o.psfModel);
    RefuseSharedFiles({{"IN", o.input}}, {{"--log", o.messages.logFile}});
    const MessageRoute messages(o.messages);
    ApplyResources(o.resources);
    PrivateTempDir temp(o.tempDir);
    const InputStack input = OpenInput(o.input, o.inputOptions, temp, "input");
    const std::string libraryTemp = temp.File("work");
    std::filesystem::create_directory(libraryTemp);
    Progress::CatchInterrupt();
    float estimate = 0;
    uint16_t code;
    {
        Progress progress("searching");
        code = ovd3dInverseFilterDetectSAWithPsfModel(
            input.rawPath.c_str(), libraryTemp.c_str(), int16_t(input.shape.width),
            int16_t(input.shape.height), int16_t(input.shape.depth), input.spacing.x,
            input.spacing.y, input.spacing.z, o.optics.na, o.optics.ri,
            o.optics.WavelengthMicrometres(), 0, o.optics.Brightfield() ? 1 : 0, 0,
            int16_t(o.cut.guardXY), int16_t(o.cut.guardZ), int16_t(o.cut.overlap), 1,
            ArgumentPixelTypeOf(input.shape.type), o.lower, o.upper, &estimate, 0, 0, 0, &model,
            &Progress::OnHostStatus, &progress);
    }
    if (code != OVD_RESULT_SUCCESS)
        return LibraryResult(code);
    std::printf("%.3f\n", estimate);
    return 0;
}

struct PsfOptions {
    std::string output, size = "64x64x32", spacing = "0.1,0.1,0.25";
    OpticsOptions optics;
    PsfModelOptions psfModel;
    MessageOptions messages;
};

int RunPsf(const PsfOptions& o) {
    const ovdStructPsfModel model = PsfModelOf(o.psfModel);
    RefuseSharedFiles({}, {{"OUT", o.output}, {"--log", o.messages.logFile}});
    const MessageRoute messages(o.messages);
    const StackShape shape = ParseSize(o.size, "PSF");
    const Spacing spacing = ParseSpacing(o.spacing);
    SafeOutput output(o.output);
    const bool tiffOut = HasTiffExtension(o.output);
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
        RawFloatToTiff(rawOut, output.Path(), shape, spacing, o.output);
    output.Commit();
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"ovd: deconvolution of light-microscope stacks"};
    app.require_subcommand(1);

    RestoreOptions restore;
    CLI::App* restoreCommand =
        app.add_subcommand("restore", "restore a stack: Wiener filter, ML-EM or Gold's method");
    restoreCommand->add_option("IN", restore.input, "input stack: TIFF, or raw with --size and --type")->required();
    restoreCommand->add_option("OUT", restore.output, "restored stack: float TIFF (.tif) or raw float")->required();
    AddInputOptions(restoreCommand, restore.inputOptions);
    AddOpticsOptions(restoreCommand, restore.optics, true);
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
    AddMessageOptions(restoreCommand, restore.messages);

    DetectOptions detect;
    CLI::App* detectCommand = app.add_subcommand("detect-sa", "estimate the spherical aberration of a stack");
    detectCommand->add_option("IN", detect.input, "input stack: TIFF, or raw with --size and --type")->required();
    AddInputOptions(detectCommand, detect.inputOptions);
    AddOpticsOptions(detectCommand, detect.optics, false);
    AddCutOptions(detectCommand, detect.cut);
    AddPsfModelOptions(detectCommand, detect.psfModel);
    detectCommand->add_option("--min", detect.lower, "lower limit of the estimate")->capture_default_str();
    detectCommand->add_option("--max", detect.upper, "upper limit of the estimate")->capture_default_str();
    detectCommand->add_option("--temp-dir", detect.tempDir, "where temporary files go (default: system temp)");
    AddResourceOptions(detectCommand, detect.resources);
    AddMessageOptions(detectCommand, detect.messages);

    PsfOptions psf;
    CLI::App* psfCommand = app.add_subcommand("psf", "write the theoretical PSF of the optics, centred");
    psfCommand->add_option("OUT", psf.output, "PSF stack: float TIFF (.tif) or raw float")->required();
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
    } catch (const StackError& e) {
        return Fail(e.what());
    } catch (const std::exception& e) {
        return Fail(e.what());
    }
}
