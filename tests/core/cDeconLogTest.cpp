#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <sstream>
#include <streambuf>
#include <string>

#include "core/cDeconLog.h"

using namespace Ovidane;
namespace fs = std::filesystem;

namespace {

// A log with every dumped kind of value set, plus values under keys the dump leaves out.
void Fill(cDeconParameter& p) {
    p.SetString(DEC_SPARAMS_ORIGINAL_FILE, "/data/stack.raw");
    p.SetString(DEC_SPARAMS_OUTPUT_PSF_FILE, "psf out.raw");
    p.SetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE, "/out/result.raw");
    p.SetString(DEC_SPARAMS_TEMP_DIRECTORY, "/tmp/not-dumped");

    p.SetReal(DEC_RPARAMS_NUMERICAL_APERTURE, 1.4f);
    p.SetReal(DEC_RPARAMS_REFRACTION_INDEX, 1.515f);
    p.SetReal(DEC_RPARAMS_EMISSION_WAVELENGTH, 0.52f);
    p.SetReal(DEC_RPARAMS_X_SPACING, 0.1f);
    p.SetReal(DEC_RPARAMS_Y_SPACING, 0.1f);
    p.SetReal(DEC_RPARAMS_Z_SPACING, 0.25f);
    p.SetReal(DEC_RPARAMS_PSF_X_SPACING, 0.05f);
    p.SetReal(DEC_RPARAMS_PSF_Y_SPACING, 0.05f);
    p.SetReal(DEC_RPARAMS_PSF_Z_SPACING, 0.2f);
    p.SetReal(DEC_RPARAMS_GOODS_FACTOR, 2e-5f);
    p.SetReal(DEC_RPARAMS_SPHERICAL_ABERRATION, -1.25f);
    p.SetReal(DEC_RPARAMS_DARKCURRENT, 1234567.0f);
    p.SetReal(DEC_RPARAMS_STRCH_FACTOR, 1.0f);
    p.SetReal(DEC_RPARAMS_GOLDS_SMOOTH_GAUSS, 1.0f / 3.0f);
    p.SetReal(DEC_RPARAMS_IMAGE_MAXIMUM, 999.0f);

    for (int key = 1; key < kDecIntKeyCount; ++key)
        p.SetInt(static_cast<DecIntKey>(key), 100 + key);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_WIDTH, 512);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT, 256);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_DEPTH, 64);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_XNUMBEROFVOLUMES, 2);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_YNUMBEROFVOLUMES, 3);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_ZNUMBEROFVOLUMES, 1);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_OVERLAP, -7);

    p.SetInt64(DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE, 5000000000LL);

    p.SetBool(DEC_BPARAMS_ADAPTIVE_PSF, true);
    p.SetBool(DEC_BPARAMS_IS_TLB, true);
    p.SetBool(DEC_BPARAMS_SAVE_PSF, true);
    p.SetBool(DEC_BPARAMS_IS_2D, true);
    p.SetBool(DEC_BPARAMS_DELETE_ORIGINAL_FILE, true);

    p.SetFlag(DEC_FPARAMS_DATATYPE, DEC_FLAG_DTF_FLOAT_32BIT);
    p.SetFlag(DEC_FPARAMS_MODALITY, 2);
    p.SetFlag(DEC_FPARAMS_INITIAL_IMAGE_SOURCE, DEC_FLAG_IIS_SLICE);
    p.SetFlag(DEC_FPARAMS_INITIAL_GUESS_METHOD, DEC_FLAG_IGM_FILTERED_ORIGINAL);
    p.SetFlag(DEC_FPARAMS_PSF_GUESS_METHOD, DEC_FLAG_PGM_THEORETICAL_EST);
    p.SetFlag(DEC_FPARAMS_PSF_GENERATION_SOURCE, DEC_FLAG_PSFSRC_CALCULATED);
    p.SetFlag(DEC_FPARAMS_NOISE_SMOOTHING_METHOD, DEC_FLAG_NSM_GAUSSIAN);
    p.SetFlag(DEC_FPARAMS_FREQUENCY_CON_METHOD, DEC_FLAG_FCM_THEORETICAL_LIMIT);
    p.SetFlag(DEC_FPARAMS_STOPPING_CRITERION, DEC_FLAG_SC_ITERATIVE_CALLBACK);
    p.SetFlag(DEC_FPARAMS_DARK_CURRENT_METHOD, DEC_FLAG_DCM_AUTO_CALCULATION);
    p.SetFlag(DEC_FPARAMS_SUBVOLUME_METHOD, DEC_FLAG_SVM_STATIC);
    p.SetFlag(DEC_FPARAMS_NOISE_LEVEL, DEC_FLAG_NOISE_LEVEL_ESTIMATE);
    p.SetFlag(DEC_FPARAMS_PREVIEW_METHOD, DEC_FLAG_PM_2D_PREVIEW);
    p.SetFlag(DEC_FPARAMS_PSF_PREVIEW_METHOD, DEC_FLAG_PPM_2D_PSF_PREVIEW);
}

const char* const kFilledDump =
    "DEC_SPARAMS_ORIGINAL_FILE = /data/stack.raw\n"
    "DEC_SPARAMS_INPUT_PSF_FILE = \n"
    "DEC_SPARAMS_OUTPUT_PSF_FILE = psf out.raw\n"
    "DEC_SPARAMS_OUTPUT_IMAGE_FILE = /out/result.raw\n"
    "DEC_RPARAMS_NUMERICAL_APERTURE = 1.4\n"
    "DEC_RPARAMS_REFRACTION_INDEX = 1.515\n"
    "DEC_RPARAMS_EMISSION_WAVELENGTH = 0.52\n"
    "DEC_RPARAMS_X_SPACING = 0.1\n"
    "DEC_RPARAMS_Y_SPACING = 0.1\n"
    "DEC_RPARAMS_Z_SPACING = 0.25\n"
    "DEC_RPARAMS_PSF_X_SPACING = 0.05\n"
    "DEC_RPARAMS_PSF_Y_SPACING = 0.05\n"
    "DEC_RPARAMS_PSF_Z_SPACING = 0.2\n"
    "DEC_RPARAMS_MINIMUM_RADIUS = 0\n"
    "DEC_RPARAMS_GOODS_FACTOR = 2e-05\n"
    "DEC_RPARAMS_AXIAL_CONSTRAINT = 0\n"
    "DEC_RPARAMS_SPHERICAL_ABERRATION = -1.25\n"
    "DEC_RPARAMS_DARKCURRENT = 1.23457e+06\n"
    "DEC_RPARAMS_STRCH_FACTOR = 1\n"
    "DEC_RPARAMS_GOLDS_SMOOTH_GAUSS = 0.333333\n"
    "DEC_RPARAMS_SPHERICAL_ABERRATION-1.25\n"
    "DEC_IPARAMS_SUBVOLUME_WIDTH = 512\n"
    "DEC_IPARAMS_SUBVOLUME_HEIGHT = 256\n"
    "DEC_IPARAMS_SUBVOLUME_DEPTH = 64\n"
    "DEC_IPARAMS_SUBVOLUME_XYGUARDBAND = 104\n"
    "DEC_IPARAMS_SUBVOLUME_ZGUARDBAND = 105\n"
    "DEC_IPARAMS_SUBVOLUME_OVERLAP = -7\n"
    "DEC_IPARAMS_SUBVOLUME_XINDEX = 107\n"
    "DEC_IPARAMS_SUBVOLUME_YINDEX = 108\n"
    "DEC_IPARAMS_SUBVOLUME_ZINDEX = 109\n"
    "DEC_IPARAMS_SUBVOLUME_X1GUARDBAND = 110\n"
    "DEC_IPARAMS_SUBVOLUME_Y1GUARDBAND = 111\n"
    "DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND = 112\n"
    "DEC_IPARAMS_SUBVOLUME_X2GUARDBAND = 113\n"
    "DEC_IPARAMS_SUBVOLUME_Y2GUARDBAND = 114\n"
    "DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND = 115\n"
    "DEC_IPARAMS_SUBVOLUME_XNUMBEROFVOLUMES = 2\n"
    "DEC_IPARAMS_SUBVOLUME_YNUMBEROFVOLUMES = 3\n"
    "DEC_IPARAMS_SUBVOLUME_ZNUMBEROFVOLUMES = 1\n"
    "DEC_IPARAMS_SUBVOLUME_MEMORYSIZE = 119\n"
    "DEC_IPARAMS_PSF_WIDTH = 120\n"
    "DEC_IPARAMS_PSF_HEIGHT = 121\n"
    "DEC_IPARAMS_PSF_DEPTH = 122\n"
    "DEC_IPARAMS_TOTAL_ITERATIONS = 123\n"
    "DEC_IPARAMS_CURRENT_ITERATION = 124\n"
    "DEC_IPARAMS_GOLDS_SMOOTH_ITER = 125\n"
    "DEC_IPARAMS_SUBPIXEL_XY_FACTOR = 126\n"
    "DEC_IPARAMS_SAVE_INTERVAL = 128\n"
    "DEC_IPARAMS_BINFACTOR = 130\n"
    "DEC_IPARAMS_SUBVOLUME_EXTENDED_WIDTH = 131\n"
    "DEC_IPARAMS_SUBVOLUME_EXTENDED_HEIGHT = 132\n"
    "DEC_IPARAMS_SUBVOLUME_EXTENDED_DEPTH = 133\n"
    "DEC_IPARAMS_SUBVOLUME_STARTX_IN_EXSUBVOLUME = 134\n"
    "DEC_IPARAMS_SUBVOLUME_STARTY_IN_EXSUBVOLUME = 135\n"
    "DEC_IPARAMS_SUBVOLUME_STARTZ_IN_EXSUBVOLUME = 136\n"
    "DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE = 5000000000\n"
    "DEC_BPARAMS_ADAPTIVE_PSF = 1\n"
    "DEC_BPARAMS_IS_CONFOCAL = 0\n"
    "DEC_BPARAMS_IS_TLB = 1\n"
    "DEC_BPARAMS_IS_PHASEOBJECT = 0\n"
    "DEC_BPARAMS_BANDLIMIT_OBSERVE = 0\n"
    "DEC_BPARAMS_PREPROCESS_PSF = 0\n"
    "DEC_BPARAMS_PSF_HIGH_NA = 0\n"
    "DEC_BPARAMS_PSF_EMPIRICAL = 0\n"
    "DEC_BPARAMS_VECTOR_EXTRAPOLATION = 0\n"
    "DEC_BPARAMS_SUBVOLUME_XYMONTAGE = 0\n"
    "DEC_BPARAMS_SUBVOLUME_ZMONTAGE = 0\n"
    "DEC_BPARAMS_PSF_CONSTRAINTS = 0\n"
    "DEC_BPARAMS_INTENSITY_CORRECTION = 0\n"
    "DEC_BPARAMS_ACCELERATION_SA_DETECTION = 0\n"
    "DEC_BPARAMS_SAVE_PSF = 1\n"
    "DEC_FPARAMS_DATATYPE = DEC_FLAG_DTF_FLOAT_32BIT\n"
    "DEC_FPARAMS_MODALITY = <invalid>\n"
    "DEC_FPARAMS_DECON_METHOD = <invalid>\n"
    "DEC_FPARAMS_INITIAL_GUESS_METHOD = DEC_FLAG_IGM_FILTERED_ORIGINAL\n"
    "DEC_FPARAMS_PSF_GUESS_METHOD = DEC_FLAG_PGM_THEORETICAL_EST\n"
    "DEC_FPARAMS_PSF_GENERATION_SOURCE = DEC_FLAG_PSFSRC_CALCULATED\n"
    "DEC_FPARAMS_NOISE_SMOOTHING_METHOD = DEC_FLAG_NSM_GAUSSIAN\n"
    "DEC_FPARAMS_FREQUENCY_CON_METHOD = DEC_FLAG_FCM_THEORETICAL_LIMIT\n"
    "DEC_FPARAMS_STOPPING_CRITERION = <invalid>\n"
    "DEC_FPARAMS_DARK_CURRENT_METHOD = DEC_FLAG_DCM_AUTO_CALCULATION\n"
    "DEC_FPARAMS_SUBVOLUME_METHOD = DEC_FLAG_SVM_STATIC\n"
    "DEC_FPARAMS_NOISE_LEVEL = <invalid>\n"
    "SUBVOLUMES: 6\n"
    "DIMENSIONS: 512X256X64\n";

std::string DumpOf(const cDeconLog& log) {
    std::ostringstream out;
    log.Dump(out);
    return out.str();
}

std::string ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Counts flushes reaching the buffer.
class cSyncCounter : public std::stringbuf {
public:
    int syncs = 0;

protected:
    int sync() override {
        ++syncs;
        return std::stringbuf::sync();
    }
};

// A fresh, empty directory that is also the current directory while it lives.
class ScratchDirectory {
public:
    ScratchDirectory()
        : mPrevious(fs::current_path()),
          mPath(fs::temp_directory_path() /
                ("ovd-log-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                 "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name())) {
        fs::remove_all(mPath);
        fs::create_directories(mPath);
        fs::current_path(mPath);
    }
    ~ScratchDirectory() {
        fs::current_path(mPrevious);
        fs::remove_all(mPath);
    }
    const fs::path& Path() const { return mPath; }
    bool IsEmpty() const { return fs::is_empty(mPath); }

private:
    fs::path mPrevious;
    fs::path mPath;
};

} // namespace

TEST(cDeconLog, DumpListsTheRecordLineByLine) {
    cDeconLog log;
    Fill(log.GetParameters());
    EXPECT_EQ(DumpOf(log), kFilledDump);
}

TEST(cDeconLog, DumpIgnoresCallerFormattingAndFlushesEveryLine) {
    cDeconLog log;
    Fill(log.GetParameters());
    cSyncCounter buffer;
    std::ostream out(&buffer);
    out << std::hex << std::fixed << std::setprecision(2) << std::boolalpha;
    log.Dump(out);
    EXPECT_EQ(buffer.str(), kFilledDump);
    EXPECT_EQ(buffer.syncs, 85); // one per line
    // The caller's formatting is back afterwards.
    out << 255 << ' ' << 0.5;
    EXPECT_EQ(buffer.str().substr(std::string(kFilledDump).size()), "ff 0.50");
}

TEST(cDeconLog, FreshLogDumpsZerosAndInvalidFlags) {
    const std::string dump = DumpOf(cDeconLog());
    EXPECT_NE(dump.find("DEC_SPARAMS_ORIGINAL_FILE = \n"), std::string::npos);
    EXPECT_NE(dump.find("DEC_RPARAMS_SPHERICAL_ABERRATION0\n"), std::string::npos);
    EXPECT_NE(dump.find("DEC_FPARAMS_DATATYPE = <invalid>\n"), std::string::npos);
    EXPECT_NE(dump.find("DEC_BPARAMS_ADAPTIVE_PSF = 0\n"), std::string::npos);
    EXPECT_TRUE(dump.ends_with("SUBVOLUMES: 0\nDIMENSIONS: 0X0X0\n"));
}

TEST(cDeconLog, CopySharesNothingAndStartsWithoutLogPath) {
    cDeconLog source;
    Fill(source.GetParameters());
    source.SetLogPath("/somewhere/run");
    cDeconLog copy(source);
    EXPECT_EQ(copy.GetObjectName(), "cDeconLog");
    EXPECT_EQ(copy.GetLogPath(), "");
    EXPECT_EQ(DumpOf(copy), kFilledDump);
    EXPECT_NE(&copy.GetParameters(), &source.GetParameters());

    cDeconParameter& c = copy.GetParameters();
    c.SetString(DEC_SPARAMS_ORIGINAL_FILE, "other");
    c.SetInt(DEC_IPARAMS_SLICE_INDEX, -1);
    c.SetInt64(DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE, 1);
    c.SetReal(DEC_RPARAMS_IMAGE_MAXIMUM, 1.0f);
    c.SetFlag(DEC_FPARAMS_MODALITY, DEC_FLAG_MOD_CONFOCAL);
    c.SetBool(DEC_BPARAMS_IS_2D, false);
    const cDeconParameter& s = source.GetParameters();
    EXPECT_EQ(s.GetString(DEC_SPARAMS_ORIGINAL_FILE), "/data/stack.raw");
    EXPECT_EQ(s.GetInt(DEC_IPARAMS_SLICE_INDEX), 140);
    EXPECT_EQ(s.GetInt64(DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE), 5000000000LL);
    EXPECT_EQ(s.GetReal(DEC_RPARAMS_IMAGE_MAXIMUM), 999.0f);
    EXPECT_EQ(s.GetFlag(DEC_FPARAMS_MODALITY), 2);
    EXPECT_TRUE(s.GetBool(DEC_BPARAMS_IS_2D));
}

TEST(cDeconLog, WriteLogReplacesTheFileNamedAfterLogPathOrOriginalFile) {
    ScratchDirectory dir;
    cDeconLog log;
    Fill(log.GetParameters());
    const fs::path original = dir.Path() / "stack.raw";
    log.GetParameters().SetString(DEC_SPARAMS_ORIGINAL_FILE, original.string());
    const std::string expected = DumpOf(log);

    std::ofstream(original.string() + "_Log.txt") << std::string(10000, 'x');
    log.WriteLog();
    EXPECT_EQ(ReadFile(original.string() + "_Log.txt"), expected);

    log.SetLogPath((dir.Path() / "run").string());
    log.WriteLog();
    EXPECT_EQ(ReadFile(dir.Path() / "run_Log.txt"), expected);
    EXPECT_FALSE(fs::exists(dir.Path() / "run"));
}

TEST(cDeconLog, WriteLogWithNoNamesAtAllWritesUnderscoreLogInCurrentDirectory) {
    ScratchDirectory dir;
    cDeconLog log;
    log.WriteLog();
    EXPECT_EQ(ReadFile(dir.Path() / "_Log.txt"), DumpOf(log));
}

TEST(cDeconLog, AppendLogAddsToTheLogPathItselfOrDoesNothing) {
    ScratchDirectory dir;
    cDeconLog log;
    Fill(log.GetParameters());
    log.AppendLog(); // no log path: no file, not even "_Log.txt"
    EXPECT_TRUE(dir.IsEmpty());

    const fs::path path = dir.Path() / "record.txt";
    std::ofstream(path) << "header\n";
    log.SetLogPath(path.string());
    log.AppendLog();
    log.AppendLog();
    EXPECT_EQ(ReadFile(path), std::string("header\n") + kFilledDump + kFilledDump);
}

TEST(cDeconLog, UnopenableFileIsSkippedSilently) {
    ScratchDirectory dir;
    cDeconLog log;
    log.SetLogPath((dir.Path() / "missing" / "run").string());
    EXPECT_NO_THROW(log.WriteLog());
    EXPECT_NO_THROW(log.AppendLog());
    EXPECT_TRUE(dir.IsEmpty());
}
